#include "host/debian/mod_tessel/files/listed.h"

#include "host/debian/mod_tessel/files/place.h"

namespace tessel {

std::optional<FileStatus> listedStatus(const FileDescriptor& folder, int opened,
                                       const FolderReader::Entry& entry) {
  const bool mayBeListed = entry.type == DT_REG || entry.type == DT_DIR || entry.type == DT_LNK ||
                           entry.type == DT_UNKNOWN;
  if (!mayBeListed || (entry.name[0] == '.' && isPrivateName(entry.name))) return std::nullopt;
  auto status = statusIn(opened, entry.name);
  if (!status) return std::nullopt;
  if (status->isLink()) {
    const auto led = findBelow(folder, entry.name);
    if (!led || !led->target.exists()) return std::nullopt;
    status = led->target.status;
  }
  if (!status->isFile() && !status->isFolder()) return std::nullopt;
  return *status;
}

}  // namespace tessel
