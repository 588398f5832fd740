#include "platform/base/secret.h"

#include <cstring>

namespace tessel {

Secret::Secret(std::initializer_list<std::string_view> parts) {
  size_t size = 0;
  for (const std::string_view part : parts) size += part.size();
  bytes_.reserve(size);  // growing would leave copies behind
  for (const std::string_view part : parts) bytes_.insert(bytes_.end(), part.begin(), part.end());
}

Secret::~Secret() {
  if (!bytes_.empty()) ::explicit_bzero(bytes_.data(), bytes_.size());
}

}  // namespace tessel
