// How Apache is to be started: what its environment property list asks for, reduced to what can
// neither keep Apache from starting nor change more than a value in its configuration.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/property_list/property_list.h"

namespace tessel {

struct ApacheStart {
  std::map<std::string, std::string> variables;  // to be added to the environment
  std::vector<std::string> defines;              // names for -D
  std::vector<std::string> remarks;              // what was left out or replaced, a line each
};

// Of the list become variables the texts whose names begin with TESSEL_ or ORRIN_, and defines the
// keys "-D NAME", whatever their value. Left out with a remark is everything else: much of what a
// program's environment may hold decides what code it runs, as root. So are names that are not made
// of letters, digits and underscores, texts with a NUL byte, and the defines by which Apache would
// do something else than serve.
//
// The five values that httpd_tessel.conf expands inside quotes always exist. What is missing gets a
// default: every address, the port 8443, the name "localhost", no certificate, any group. What is
// there and cannot be used, be it of another type than text, opens nothing: the address 127.0.0.1
// and a group that nobody is in, each with a remark in the words of tessel.plist. The define TESSEL
// says that all this holds, TESSEL_ACCESS_GROUP that there is a group.
ApacheStart apacheStart(const PropertyList& list);

// The same without anything of Tessel's: how Apache is started when it does not start otherwise.
ApacheStart withoutTessel(ApacheStart start);

}  // namespace tessel
