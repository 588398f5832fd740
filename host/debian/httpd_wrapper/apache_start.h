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

// Every text of the list becomes a variable and every key "-D NAME" a define, whatever its value.
// Left out with a remark: names that are not made of letters, digits and underscores, texts with a
// NUL byte, and names that belong to the host (APACHE_*, LD_*, PATH, GLIBC_TUNABLES): Debian's
// scripts find the running server by the first, the others choose what code root runs.
//
// The five values that httpd_tessel.conf expands inside quotes always exist. One that is missing,
// or that would end its quotes, gets what works: the address "*" when it is missing and 127.0.0.1
// when it is no address, the port 8443, the name "localhost", no certificate, and a group that
// nobody is in. The define TESSEL says that all this holds, TESSEL_ACCESS_GROUP that there is a
// group.
ApacheStart apacheStart(const PropertyList& environment);

}  // namespace tessel
