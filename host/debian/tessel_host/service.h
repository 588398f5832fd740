// The service as this machine's files describe it: what the administrator has set, what Apache was
// told at the last start, and where to ask whether it is so.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "contract/paths.h"
#include "control/configuration.h"
#include "host/debian/httpd_wrapper/apache_start.h"
#include "platform/base/result.h"
#include "platform/network/http.h"
#include "platform/property_list/property_list.h"

namespace tessel {

struct Service {
  Result<PropertyList> settings = PropertyList();     // an error when the file cannot be used
  Result<PropertyList> environment = PropertyList();  // the same; empty when there is no file
  Configuration configuration;  // of the settings, empty when they are unusable
  ApacheStart apache;           // what becomes of the environment

  std::string name;    // by which clients call it
  std::string port;    // on which Apache was told to listen
  std::string server;  // the address and port to ask, as HTTPQuestion has it
  bool usesTLS = false;
  std::string certificateID;  // empty without one
};

// Whether Tessel's Apache configuration is in force.
bool isTesselOn();

// Reads the files. What is missing or broken is for the caller to see in it.
Service readService();

// Asks as a client does who has not signed in. Whoever serves answers with 401.
Result<HTTPAnswer> askService(const Service& service);
// The same at another address than the one that Apache listens on.
Result<HTTPAnswer> askServiceAt(const Service& service, const std::string& address,
                                std::chrono::seconds patience);

// Whether Apache's job is running, and the process that it is, if that can be told.
bool isApacheRunning();
std::optional<pid_t> apacheProcess();

}  // namespace tessel
