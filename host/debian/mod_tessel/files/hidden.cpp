#include "host/debian/mod_tessel/files/hidden.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "host/debian/mod_tessel/files/place.h"
#include "host/debian/mod_tessel/files/tree.h"
#include "platform/base/hexadecimal.h"

namespace tessel {

namespace {

constexpr std::string_view kPrefix = ".tessel-";
constexpr size_t kDigits = 16;
// No client can give a folder these permissions, nor a local user one that is not his own: by them
// a working folder is told from any other that somebody has given its name.
constexpr mode_t kFolderMode = S_ISVTX | S_IRWXU;
constexpr mode_t kTold = 07777 & ~static_cast<mode_t>(S_ISGID);  // which it takes over from above

}  // namespace

bool isHiddenName(std::string_view name) {
  return name.size() == kPrefix.size() + kDigits && name.starts_with(kPrefix) &&
         name.find_first_not_of("0123456789abcdef", kPrefix.size()) == std::string_view::npos;
}

Result<std::string> newHiddenName() {
  std::array<char, kDigits / 2> bytes{};
  if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    return systemError("no random numbers", errno);
  }
  return std::string(kPrefix) + hexadecimal({bytes.data(), bytes.size()});
}

Result<HiddenFolder> HiddenFolder::create(const FileDescriptor& folder) {
  auto name = newHiddenName();
  if (!name) return name.error();
  HiddenFolder hidden;
  auto parent = duplicate(folder);
  if (!parent) return parent.error();
  if (::mkdirat(folder.get(), name->c_str(), kFolderMode) != 0) {
    return systemError("a working folder cannot be made", errno);
  }
  hidden.folder_ = *std::move(parent);
  hidden.name_ = *std::move(name);
  hidden.self_ = FileDescriptor(::openat(folder.get(), hidden.name_.c_str(),
                                         O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!hidden.self_) return systemError("a working folder cannot be opened", errno);
  (void)::flock(hidden.self_.get(), LOCK_EX | LOCK_NB);
  return hidden;
}

HiddenFolder::~HiddenFolder() {
  if (!folder_) return;
  if (self_) (void)removeContent(self_);
  (void)::unlinkat(folder_.get(), name_.c_str(), AT_REMOVEDIR);
}

void removeLeftover(const FileDescriptor& folder, const std::string& name,
                    std::chrono::seconds age) {
  const FileDescriptor item(::openat(folder.get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  const auto status = item ? statusOf(item.get()) : systemError(name, errno);
  if (!status || status->owner != ::geteuid()) return;
  const bool isOurs = status->isFolder() && (status->mode & kTold) == kFolderMode;
  if (!isOurs && !status->isFile()) return;
  // Between the making of a name and its lock lies a moment.
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  if (std::chrono::nanoseconds(status->changed) > now - age) return;
  const auto left = reopen(item, O_RDONLY | O_NONBLOCK);
  if (!left || ::flock(left->get(), LOCK_EX | LOCK_NB) != 0) return;
  if (status->isFolder()) (void)removeContent(*left);
  (void)::unlinkat(folder.get(), name.c_str(), status->isFolder() ? AT_REMOVEDIR : 0);
}

}  // namespace tessel
