#include "host/debian/mod_tessel/files/listed.h"

#include <cerrno>

namespace tessel {

namespace {

// Whether a link leads to nothing that clients may see, and not merely out of reach for now.
bool leadsNowhere(int number) {
  return number == EACCES || number == ELOOP || number == ENOENT || number == ENOTDIR ||
         number == ENAMETOOLONG;
}

}  // namespace

Result<std::optional<Listed>> listedEntry(const FileDescriptor& folder, int opened,
                                          const FolderReader::Entry& entry) {
  std::optional<Listed> none;
  const bool mayBeListed = entry.type == DT_REG || entry.type == DT_DIR || entry.type == DT_LNK ||
                           entry.type == DT_UNKNOWN;
  if (!mayBeListed || (entry.name[0] == '.' && isPrivateName(entry.name))) return none;
  const auto status = statusIn(opened, entry.name);
  if (!status && status.error().code == ENOENT) return none;
  if (!status) return status.error();
  Listed found{*status, nullptr};
  if (status->isLink()) {
    auto led = findBelow(folder, entry.name);
    if (!led && !leadsNowhere(led.error().code)) return led.error();
    if (!led || !led->target.exists()) return none;
    found.status = led->target.status;
    found.target = std::make_unique<Place>(std::move(led->target));
  }
  if (!found.status.isFile() && !found.status.isFolder()) return none;
  return std::optional(std::move(found));
}

}  // namespace tessel
