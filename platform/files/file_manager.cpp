#include "platform/files/file_manager.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "platform/base/system_error.h"
#include "platform/files/file_descriptor.h"
#include "platform/files/path.h"

namespace tessel {

namespace {

constexpr mode_t kPermissionBits = 0777;

// Makes a rename, link or removal in the folder of `path` survive a power cut. The change itself
// has happened by then, so a folder that cannot be synced is no failure of the operation.
void syncParentDirectory(const std::string& path) {
  const FileDescriptor directory(
      ::open(parentDirectory(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (directory) (void)::fsync(directory.get());
}

// A rename that never replaces. Old file systems refuse the flag; there a second hard link, which
// never replaces either, does the same in two steps.
bool renameWithoutReplacing(const std::string& from, const std::string& to) {
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  return ::link(from.c_str(), to.c_str()) == 0 && ::unlink(from.c_str()) == 0;
}

// A new file under a temporary name in the folder of a path, which only its owner can read. It is
// removed when this goes out of scope, unless it has been renamed by then.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& beside)
      : path_(appendPathComponent(parentDirectory(beside), PLATFORM_TEMPORARY_PREFIX "XXXXXX")),
        file_(::mkostemp(path_.data(), O_CLOEXEC)) {}
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  TemporaryFile(TemporaryFile&&) = delete;
  TemporaryFile& operator=(TemporaryFile&&) = delete;
  ~TemporaryFile() {
    if (file_) (void)::unlink(path_.c_str());
  }

  int descriptor() const { return file_.get(); }  // negative when it could not be made
  bool renameTo(const std::string& target) {
    if (::rename(path_.c_str(), target.c_str()) != 0) return false;
    file_.reset();
    return true;
  }

 private:
  std::string path_;
  FileDescriptor file_;
};

// Puts a new file in the path's place, with this owner unless it is null. `what` is what fails.
Status replaceFile(const std::string& path, std::string_view bytes, mode_t mode,
                   const struct stat* owner, const std::string& what) {
  TemporaryFile file(path);
  if (file.descriptor() < 0) return systemError(what);
  if (owner != nullptr && (owner->st_uid != ::geteuid() || owner->st_gid != ::getegid()) &&
      ::fchown(file.descriptor(), owner->st_uid, owner->st_gid) != 0) {
    return systemError(what);
  }
  if (const Status written = writeAll(file.descriptor(), bytes); !written) {
    return systemError(what, written.error().code);
  }
  if (::fchmod(file.descriptor(), mode) != 0 || ::fsync(file.descriptor()) != 0 ||
      !file.renameTo(path)) {
    return systemError(what);
  }
  syncParentDirectory(path);
  return {};
}

}  // namespace

mode_t defaultFileMode() {
  constexpr mode_t kReadAndWrite = 0666;
  const mode_t mask = ::umask(0);
  (void)::umask(mask);
  return kReadAndWrite & ~mask;
}

bool FileManager::fileExistsAtPath(const std::string& path) const {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0;
}

bool FileManager::isAbsent(const std::string& path) const {
  struct stat status {};
  return ::stat(path.c_str(), &status) != 0 && isAbsence(errno);
}

bool FileManager::directoryExistsAtPath(const std::string& path) const {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

Status FileManager::moveItem(const std::string& from, const std::string& to) const {
  if (!renameWithoutReplacing(from, to)) return systemError("cannot move " + from + " to " + to);
  syncParentDirectory(to);
  if (parentDirectory(from) != parentDirectory(to)) syncParentDirectory(from);
  return {};
}

Status FileManager::createSymbolicLink(const std::string& path, const std::string& target) const {
  if (::symlink(target.c_str(), path.c_str()) != 0) {
    return systemError("cannot make a link at " + path);
  }
  syncParentDirectory(path);
  return {};
}

Status FileManager::removeItem(const std::string& path) const {
  if (std::remove(path.c_str()) != 0) return systemError("cannot remove " + path);
  syncParentDirectory(path);
  return {};
}

Status FileManager::createFile(const std::string& path, mode_t mode) const {
  return replaceFile(path, "", mode, nullptr, "cannot create " + path);
}

Status FileManager::createDirectory(const std::string& path, mode_t mode) const {
  // mkdir(2) takes the caller's umask away from the mode, and a folder that a run which is killed
  // has made with the wrong one would keep it.
  const mode_t mask = ::umask(0);
  const int made = ::mkdir(path.c_str(), mode);
  const int code = errno;
  (void)::umask(mask);
  if (made != 0) {
    if (code == EEXIST && directoryExistsAtPath(path)) return {};
    return systemError("cannot make the folder " + path, code);
  }
  syncParentDirectory(path);
  return {};
}

Status FileManager::writeInPlace(const std::string& path, std::string_view bytes) const {
  const FileDescriptor file(
      ::open(path.c_str(), O_WRONLY | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file) return systemError("cannot open " + path);
  const Status written = writeAll(file.get(), bytes);
  if (written && ::fsync(file.get()) == 0) return {};
  const int code = written ? errno : written.error().code;
  const bool emptied = ::ftruncate(file.get(), 0) == 0;
  return systemError((emptied ? "cannot write " : "cannot write or empty ") + path, code);
}

Status FileManager::writeAtomically(const std::string& path, std::string_view bytes,
                                    Attributes attributes) const {
  if (attributes == Attributes::Fresh) {
    return replaceFile(path, bytes, defaultFileMode(), nullptr, "cannot write " + path);
  }
  struct stat old {};
  const bool exists = ::stat(path.c_str(), &old) == 0 && S_ISREG(old.st_mode);
  return replaceFile(path, bytes, exists ? old.st_mode & kPermissionBits : kSharedFileMode,
                     exists ? &old : nullptr, "cannot write " + path);
}

Status FileManager::writeAtomically(const std::string& path, std::string_view bytes,
                                    mode_t mode) const {
  return replaceFile(path, bytes, mode, nullptr, "cannot write " + path);
}

Result<std::vector<std::string>> FileManager::contentsOfDirectory(const std::string& path) const {
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(path.c_str()), ::closedir);
  if (!directory) return systemError("cannot list " + path);
  std::vector<std::string> names;
  for (;;) {
    errno = 0;
    const dirent* entry = ::readdir(directory.get());
    if (entry == nullptr) break;
    const std::string name(entry->d_name);
    if (name != "." && name != "..") names.push_back(name);
  }
  if (errno != 0) return systemError("cannot list " + path);
  return names;
}

Result<std::string> FileManager::readFile(const std::string& path, std::size_t limit) const {
  // O_NONBLOCK: opening a pipe that nobody writes to must not hang the command.
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0) return systemError("cannot read " + path);
  if (!S_ISREG(status.st_mode)) return Error{"cannot read " + path + ": not a regular file"};
  const Error tooLarge{"cannot read " + path + ": larger than " + std::to_string(limit) + " bytes"};
  if (status.st_size > static_cast<off_t>(limit)) return tooLarge;

  // One byte more than the size says, so that the end is seen by the first read.
  std::string content(static_cast<size_t>(status.st_size) + 1, '\0');
  size_t filled = 0;
  while (filled <= limit) {
    const ssize_t got = ::read(file.get(), content.data() + filled, content.size() - filled);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return systemError("cannot read " + path);
    if (got == 0) {
      content.resize(filled);
      return content;
    }
    filled += static_cast<size_t>(got);
    if (filled == content.size()) content.resize(2 * content.size());
  }
  return tooLarge;
}

Result<Secret> FileManager::readSecretFile(const std::string& path, std::size_t limit) const {
  Result<std::string> content = readFile(path, limit);
  if (!content) return content.error();
  std::string bytes = std::move(*content);
  Secret secret{bytes};
  ::explicit_bzero(bytes.data(), bytes.size());
  return secret;
}

}  // namespace tessel
