#include "platform/network/host_names.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netdb.h>
#include <netinet/in.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <utility>

#include "platform/base/text.h"

namespace tessel {

namespace {

constexpr size_t kHostNameLimit = 255;
constexpr size_t kLargestHostEntry = 1024UL * 1024;

struct Address {
  int family = AF_UNSPEC;
  std::string bytes;  // in network order

  bool operator==(const Address&) const = default;
};

template <typename T>
void addOnce(std::vector<T>& list, const T& element) {
  if (std::find(list.begin(), list.end(), element) == list.end()) list.push_back(element);
}

template <typename Raw>
Address makeAddress(int family, const Raw& raw) {
  return {family, std::string(reinterpret_cast<const char*>(&raw), sizeof(raw))};
}

// None for a socket of another family.
std::optional<Address> addressIn(const sockaddr* socket) {
  if (socket == nullptr) return std::nullopt;
  if (socket->sa_family == AF_INET) {
    return makeAddress(AF_INET, reinterpret_cast<const sockaddr_in*>(socket)->sin_addr);
  }
  if (socket->sa_family == AF_INET6) {
    return makeAddress(AF_INET6, reinterpret_cast<const sockaddr_in6*>(socket)->sin6_addr);
  }
  return std::nullopt;
}

void addText(std::vector<std::string>& texts, const Address& address) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  if (::inet_ntop(address.family, address.bytes.data(), text.data(), text.size()) != nullptr) {
    addOnce(texts, std::string(text.data()));
  }
}

std::vector<Address> interfaceAddresses() {
  ifaddrs* first = nullptr;
  if (::getifaddrs(&first) != 0) return {};
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owned(first, ::freeifaddrs);
  std::vector<Address> addresses;
  for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
    if (const auto address = addressIn(entry->ifa_addr)) addOnce(addresses, *address);
  }
  return addresses;
}

// What the name service says of one host.
struct HostEntry {
  std::vector<std::string> names;
  std::vector<Address> addresses;
};

// The entry that `lookUp`, one of the reentrant look-ups of netdb(3), finds. Only those give the
// aliases as well.
template <typename LookUp>
std::optional<HostEntry> findEntry(LookUp lookUp) {
  std::vector<char> buffer(1024);
  hostent raw{};
  hostent* found = nullptr;
  int reason = 0;
  while (lookUp(&raw, buffer.data(), buffer.size(), &found, &reason) == ERANGE) {
    if (buffer.size() >= kLargestHostEntry) return std::nullopt;
    buffer.resize(2 * buffer.size());
  }
  if (found == nullptr) return std::nullopt;
  HostEntry entry{{found->h_name}, {}};
  for (char** alias = found->h_aliases; *alias != nullptr; ++alias) {
    entry.names.emplace_back(*alias);
  }
  const auto length = static_cast<size_t>(found->h_length);
  for (char** bytes = found->h_addr_list; *bytes != nullptr; ++bytes) {
    entry.addresses.push_back({found->h_addrtype, std::string(*bytes, length)});
  }
  return entry;
}

std::optional<HostEntry> findByName(const std::string& name, int family) {
  return findEntry([&](auto... to) { return ::gethostbyname2_r(name.c_str(), family, to...); });
}

// Whether the text is an address in any of the forms that a look-up by name takes for one.
bool isAddress(const std::string& text) {
  in_addr four{};
  in6_addr six{};
  return ::inet_aton(text.c_str(), &four) != 0 || ::inet_pton(AF_INET6, text.c_str(), &six) == 1;
}

void addNames(std::vector<std::string>& names, const std::optional<HostEntry>& entry) {
  if (!entry) return;
  for (const std::string& name : entry->names) addOnce(names, name);
}

// The lines of hosts(5), one entry each.
std::vector<HostEntry> listedHosts() {
  std::vector<HostEntry> entries;
  std::ifstream file("/etc/hosts");
  for (std::string line; std::getline(file, line);) {
    std::istringstream words(line.substr(0, line.find('#')));
    HostEntry entry;
    std::string address;
    words >> address;
    in_addr four{};
    in6_addr six{};
    if (::inet_pton(AF_INET, address.c_str(), &four) == 1) {
      entry.addresses.push_back(makeAddress(AF_INET, four));
    } else if (::inet_pton(AF_INET6, address.c_str(), &six) == 1) {
      entry.addresses.push_back(makeAddress(AF_INET6, six));
    } else {
      continue;
    }
    for (std::string name; words >> name;) entry.names.push_back(name);
    entries.push_back(std::move(entry));
  }
  return entries;
}

// All of 127.0.0.0/8 is this machine (RFC 1122, section 3.2.1.3); Debian gives the host's own names
// the address 127.0.1.1, which no interface has.
bool isLoopback(const Address& address) {
  return address.family == AF_INET && address.bytes.starts_with('\x7F');
}

}  // namespace

std::optional<std::string> hostName() {
  // The byte beyond the limit ends a name that fills the buffer.
  std::array<char, kHostNameLimit + 1> buffer{};
  if (::gethostname(buffer.data(), kHostNameLimit) != 0) return std::nullopt;
  std::string name(buffer.data());
  if (!isUTF8(name)) return std::nullopt;
  return name;
}

std::vector<std::string> hostNames(const std::string& sought) {
  std::vector<std::string> names;
  if (const auto name = hostName()) {
    names.push_back(*name);
    for (const int family : {AF_INET, AF_INET6}) {
      addNames(names, findByName(*name, family));
    }
  }
  const std::vector<Address> addresses = interfaceAddresses();
  for (const Address& address : addresses) {
    addNames(names, findEntry([&](auto... to) {
               const auto length = static_cast<socklen_t>(address.bytes.size());
               return ::gethostbyaddr_r(address.bytes.data(), length, address.family, to...);
             }));
  }
  const auto isOwn = [&](const Address& address) {
    return isLoopback(address) ||
           std::find(addresses.begin(), addresses.end(), address) != addresses.end();
  };
  // A look-up by address ends at the first line that has it, and the enumeration of the hosts
  // database, gethostent(3), passes over IPv6.
  for (const HostEntry& entry : listedHosts()) {
    if (isOwn(entry.addresses.front())) addNames(names, entry);
  }
  if (std::find(names.begin(), names.end(), sought) != names.end() || isAddress(sought)) {
    return names;
  }
  for (const int family : {AF_INET, AF_INET6}) {
    const auto entry = findByName(sought, family);
    if (entry && std::any_of(entry->addresses.begin(), entry->addresses.end(), isOwn)) {
      addNames(names, entry);
    }
  }
  return names;
}

std::vector<std::string> hostAddresses() {
  std::vector<std::string> texts;
  for (const Address& address : interfaceAddresses()) addText(texts, address);
  return texts;
}

std::vector<std::string> addressesOf(const std::string& name) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* first = nullptr;
  if (::getaddrinfo(name.c_str(), nullptr, &hints, &first) != 0) return {};
  const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owned(first, ::freeaddrinfo);
  std::vector<std::string> texts;
  for (const addrinfo* entry = first; entry != nullptr; entry = entry->ai_next) {
    if (const auto address = addressIn(entry->ai_addr)) addText(texts, *address);
  }
  return texts;
}

bool isAddressOfThisHost(const std::string& text) {
  in_addr four{};
  if (::inet_pton(AF_INET, text.c_str(), &four) == 1 && isLoopback(makeAddress(AF_INET, four))) {
    return true;
  }
  const std::vector<std::string> own = hostAddresses();
  return std::find(own.begin(), own.end(), text) != own.end();
}

}  // namespace tessel
