#include "host/debian/mod_tessel/files/new_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <vector>

#include "host/debian/mod_tessel/files/hidden.h"
#include "platform/files/access_list.h"

namespace tessel {

namespace {

constexpr const char* kAccessList = "system.posix_acl_access";
constexpr mode_t kPermissions = 0777;
constexpr mode_t kAllModeBits = 07777;

// Whether the disk, or the share of it that a user may have, is full. Other failures to keep an
// attribute are those of file systems that have none, or of files that may not be read.
bool isFull(int number) { return number == ENOSPC || number == EDQUOT; }

// The value of an extended attribute, none when it has none or may not be read.
Result<std::vector<char>> attribute(const std::string& path, const char* name) {
  std::vector<char> value(256);
  for (;;) {
    const ssize_t size = ::getxattr(path.c_str(), name, value.data(), value.size());
    if (size >= 0) {
      value.resize(static_cast<size_t>(size));
      return value;
    }
    if (errno != ERANGE) return systemError(name, errno);
    value.resize(value.size() * 4);
  }
}

Status setAttribute(const std::string& path, const char* name, const std::vector<char>& value) {
  if (::setxattr(path.c_str(), name, value.data(), value.size(), 0) == 0) return {};
  return isFull(errno) ? Status(systemError(name, errno)) : Status();
}

// The names of a file's extended attributes, those of its access lists among them. None where the
// file system has no such attributes.
Result<std::vector<std::string>> attributeNames(const std::string& path) {
  std::vector<std::string> names;
  std::string list;
  for (;;) {
    const ssize_t size = ::listxattr(path.c_str(), list.data(), list.size());
    if (size < 0 && errno == ENOTSUP) return names;
    if (size < 0 && errno != ERANGE) return systemError("attributes cannot be listed", errno);
    const bool isAll = size >= 0 && static_cast<size_t>(size) <= list.size();
    // No room asks how much it takes, which may have become more when it is asked again.
    list.resize(size >= 0 ? static_cast<size_t>(size) : 0);
    if (isAll) break;
  }
  for (size_t at = 0; at < list.size(); at += names.back().size() + 1) {
    names.emplace_back(list.c_str() + at);
  }
  return names;
}

Status copyUserAttributes(const std::vector<std::string>& names, const std::string& from,
                          const std::string& to) {
  for (const std::string& name : names) {
    if (!name.starts_with("user.")) continue;
    const auto value = attribute(from, name.c_str());
    if (!value) continue;
    if (Status set = setAttribute(to, name.c_str(), *value); !set) return set;
  }
  return {};
}

}  // namespace

Status copyUserAttributes(const std::string& from, const std::string& to) {
  const auto names = attributeNames(from);
  return names ? copyUserAttributes(*names, from, to) : names.error();
}

Result<NewFile> NewFile::create(const FileDescriptor& folder, mode_t mode) {
  NewFile made;
  made.folder_ = &folder;
  made.file_ = FileDescriptor(::openat(folder.get(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, mode));
  if (made.file_) return made;
  // EISDIR comes from kernels, and EINVAL from file systems in user space, that do not know it.
  if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL) {
    return systemError("a file cannot be made", errno);
  }
  auto name = newHiddenName();
  if (!name) return name.error();
  made.file_ = FileDescriptor(::openat(folder.get(), name->c_str(),
                                       O_CREAT | O_EXCL | O_RDWR | O_NOFOLLOW | O_CLOEXEC, mode));
  if (!made.file_) return systemError("a file cannot be made", errno);
  made.hiddenName_ = *std::move(name);
  (void)::flock(made.file_.get(), LOCK_EX | LOCK_NB);
  return made;
}

NewFile::~NewFile() {
  if (!hiddenName_.empty()) (void)::unlinkat(folder_->get(), hiddenName_.c_str(), 0);
}

Status NewFile::write(std::string_view bytes) { return writeAll(file_.get(), bytes); }

Status NewFile::seek(off_t position) {
  if (::lseek(file_.get(), position, SEEK_SET) >= 0) return {};
  return systemError("cannot be written there", errno);
}

Status NewFile::copyFrom(const FileDescriptor& source) {
  constexpr size_t kPiece = 1 << 24;
  bool isCopiedByKernel = false;
  for (;;) {
    const ssize_t copied =
        ::copy_file_range(source.get(), nullptr, file_.get(), nullptr, kPiece, 0);
    if (copied > 0) isCopiedByKernel = true;
    if (copied > 0 || (copied < 0 && errno == EINTR)) continue;
    // Some file systems, and pairs of them, cannot, and some say so by copying nothing.
    if (copied == 0 && isCopiedByKernel) return {};
    if (copied < 0 && errno != EXDEV && errno != EINVAL && errno != EOPNOTSUPP && errno != ENOSYS &&
        errno != EPERM && errno != EBADF) {
      return systemError("cannot be copied", errno);
    }
    break;
  }
  std::vector<char> piece(1 << 17);
  for (;;) {
    const ssize_t size = ::read(source.get(), piece.data(), piece.size());
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) return systemError("cannot be read", errno);
    if (size == 0) return {};
    if (Status written = write({piece.data(), static_cast<size_t>(size)}); !written) return written;
  }
}

Status NewFile::setModified(std::int64_t seconds) {
  const std::array<timespec, 2> times{timespec{0, UTIME_OMIT}, timespec{seconds, 0}};
  if (::futimens(file_.get(), times.data()) == 0) return {};
  return systemError("the time cannot be set", errno);
}

// Whoever the replaced file's owner and group were, the new one's are others: what they could do
// they can by name.
void NewFile::keepRights(AccessList& list, const FileStatus& replaced) const {
  using Tag = AccessList::Tag;
  const auto own = statusOf(file_.get());
  const auto owner = list.permissions(Tag::Owner).value_or(0);
  if (!own) return;
  if (own->owner != replaced.owner && replaced.owner != 0 && owner != 0) {
    list.allow(Tag::User, replaced.owner, owner);
  }
  const auto group = list.effective(Tag::OwningGroup);
  if (own->group != replaced.group && group != 0) list.allow(Tag::Group, replaced.group, group);
}

Status NewFile::takeAttributesOf(const FileDescriptor& item, const FileStatus& status) {
  const std::string from = descriptorPath(item.get());
  const auto names = attributeNames(from);
  if (!names) return names.error();
  const auto own = statusOf(file_.get());
  if (!own) return own.error();
  if (own->group != status.group) {
    // The kernel lets this process give away a file to groups that it is in.
    [[maybe_unused]] const int given = ::fchown(file_.get(), static_cast<uid_t>(-1), status.group);
  }
  if (std::find(names->begin(), names->end(), kAccessList) != names->end()) {
    const auto bytes = attribute(from, kAccessList);
    // Without its list, the mode would let the group do what it lets others do at most.
    if (!bytes && bytes.error().code != ENODATA) return bytes.error();
    auto list = bytes ? AccessList::fromBytes({bytes->data(), bytes->size()}) : bytes.error();
    if (list) {
      keepRights(*list, status);
      if (Status set = setAccessList(file_.get(), *list); !set) return set;
      return copyUserAttributes(*names, from, descriptorPath(file_.get()));
    }
  }
  // The folder may have given it a list.
  if (::flistxattr(file_.get(), nullptr, 0) != 0) (void)::fremovexattr(file_.get(), kAccessList);
  // What runs with its owner's rights must not, with another content and owner.
  const mode_t mode = status.mode & kPermissions;
  if ((own->mode & kAllModeBits) != mode && ::fchmod(file_.get(), mode) != 0) {
    return systemError("the mode cannot be set", errno);
  }
  return copyUserAttributes(*names, from, descriptorPath(file_.get()));
}

bool NewFile::link(const std::string& name) const {
  // Before Linux 6.10 only privileged processes may link a file by its descriptor, and all others
  // are told that there is none.
  const int folder = folder_->get();
  if (::linkat(file_.get(), "", folder, name.c_str(), AT_EMPTY_PATH) == 0) return true;
  if (errno != ENOENT && errno != EPERM) return false;
  return ::linkat(AT_FDCWD, descriptorPath(file_.get()).c_str(), folder, name.c_str(),
                  AT_SYMLINK_FOLLOW) == 0;
}

Status NewFile::giveHiddenName() {
  auto name = newHiddenName();
  if (!name) return name.error();
  if (!link(*name)) return systemError("cannot be put in place", errno);
  hiddenName_ = *std::move(name);
  return {};
}

Status NewFile::publish(const std::string& name, bool replaces) {
  if (!replaces && hiddenName_.empty()) {
    return link(name) ? Status() : systemError("cannot be put in place", errno);
  }
  // A link cannot replace; a rename can.
  if (hiddenName_.empty()) {
    if (Status named = giveHiddenName(); !named) return named;
  }
  const int folder = folder_->get();
  int result = ::renameat2(folder, hiddenName_.c_str(), folder, name.c_str(),
                           replaces ? 0 : RENAME_NOREPLACE);
  if (result != 0 && !replaces && errno == EINVAL) {
    result = ::linkat(folder, hiddenName_.c_str(), folder, name.c_str(), 0);
    if (result == 0) return {};  // the hidden name goes at the end
  }
  if (result != 0) return systemError("cannot be put in place", errno);
  hiddenName_.clear();
  return {};
}

}  // namespace tessel
