// The folders that Apache's user has been let into, by their paths without links, so that taking
// one back leaves open what the others need. Held by one run at a time.
#pragma once

#include <string>
#include <vector>

#include "platform/base/result.h"
#include "platform/files/file_descriptor.h"

namespace tessel {

class GrantedFolders {
 public:
  // Waits for other runs.
  static Result<GrantedFolders> open();

  bool has(const std::string& path) const;
  const std::vector<std::string>& paths() const { return paths_; }
  // Both are on disk when they return. A path that is no UTF-8 is refused.
  Status add(const std::string& path);
  Status remove(const std::string& path);

 private:
  explicit GrantedFolders(FileDescriptor lock) : lock_(std::move(lock)) {}
  Status save() const;

  FileDescriptor lock_;
  std::vector<std::string> paths_;
};

// Whether a path is below another.
bool isBelow(const std::string& path, const std::string& folder);

}  // namespace tessel
