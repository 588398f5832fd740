// The names and addresses under which this machine can be reached, for comparing what an
// administrator configured with what there is. From any thread.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tessel {

// The host's name as gethostname(2) gives it into a buffer of 255 bytes. None when the call fails
// or the name is not UTF-8.
std::optional<std::string> hostName();

// The host's name, then every name (canonical or alias) that the name service gives for it and for
// each of hostAddresses(), then those next to one of these or to a loopback address in hosts(5);
// each once and in this order. A name that is not among them is looked up: when the name service
// has it for an address of this machine, which DNS need not tell the other way round, what it says
// for the name is added. What cannot be looked up adds no name.
std::vector<std::string> hostNames(const std::string& sought);

// The IPv4 and IPv6 addresses of all network interfaces, loopback included, each once and in the
// system's order, as inet_ntop(3) writes them (no zone). Empty when the system does not tell.
std::vector<std::string> hostAddresses();

// The addresses that this machine finds for the name, in DNS, hosts(5) or wherever its name service
// looks, as hostAddresses() writes them and in the order in which they are to be tried. Empty when
// it finds none. As long as that takes.
std::vector<std::string> addressesOf(const std::string& name);

// Whether what is sent to the address, in the form of these, stays on this machine.
bool isAddressOfThisHost(const std::string& text);

}  // namespace tessel
