// The page that tells a member how to connect.
#pragma once

#include <string>

#include "host/debian/mod_tessel/pages/page.h"

namespace tessel {

// Where the reader's browser has found the service.
struct ServiceAddress {
  bool isEncrypted = false;
  std::string host;  // with the port, unless that is the scheme's own
};

void appendConnectPage(std::string& page, const PageFrame& frame, const ServiceAddress& address);

}  // namespace tessel
