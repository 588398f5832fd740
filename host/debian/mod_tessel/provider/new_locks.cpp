#include "host/debian/mod_tessel/provider/new_locks.h"

#include <algorithm>

namespace tessel {

Result<NewLocks> NewLocks::since(const dav_resource* resource) {
  auto known = stateOf(resource).locksOfTree(fileOf(resource));
  if (!known) return known.error();
  return NewLocks(resource, *std::move(known));
}

Status NewLocks::check() const {
  File file = fileOf(resource_);
  const Place& place = resource_->info->found.target;
  if (place.hasFolder()) {
    // Another may have come to stand there, and have been locked.
    const auto now = statusIn(place.folder.get(), place.name.c_str());
    file.identity = now ? now->identity : FileIdentity();
  }
  const auto locks = stateOf(resource_).locksOfTree(file);
  if (!locks) return locks.error();
  const bool isNew = std::any_of(locks->begin(), locks->end(), [this](const Lock& lock) {
    return std::none_of(known_.begin(), known_.end(),
                        [&lock](const Lock& known) { return known.token == lock.token; });
  });
  if (!isNew) return {};
  return Error{"Somebody has locked it meanwhile.", static_cast<int>(StateError::Locked)};
}

}  // namespace tessel
