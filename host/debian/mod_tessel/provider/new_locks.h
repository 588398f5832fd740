// Whether somebody locks what a long request works on. mod_dav looks at locks before it begins.
#pragma once

#include <vector>

#include "host/debian/mod_tessel/provider/resource.h"

namespace tessel {

class NewLocks {
 public:
  // From now on: of what stands at the resource's path, of the path itself, and of what is below.
  // Errors are State's.
  static Result<NewLocks> since(const dav_resource* resource);

  // Success as long as there are none; StateError::Locked, and State's other errors.
  Status check() const;

 private:
  NewLocks(const dav_resource* resource, std::vector<Lock> known)
      : resource_(resource), known_(std::move(known)) {}

  const dav_resource* resource_;
  std::vector<Lock> known_;
};

}  // namespace tessel
