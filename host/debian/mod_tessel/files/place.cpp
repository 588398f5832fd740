#include "host/debian/mod_tessel/files/place.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>

#include "host/debian/mod_tessel/files/hidden.h"

namespace tessel {

namespace {

constexpr int kPathFlags = O_PATH | O_CLOEXEC;

enum class LinkRule { OfRoot, OfRootOrTargetsOwner };

Error refused(const char* reason) { return Error{reason, EACCES}; }

// Splits off the first component, empty at the end of the path.
std::string_view nextComponent(std::string_view& path) {
  path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()));
  const std::string_view component = path.substr(0, path.find('/'));
  path.remove_prefix(component.size());
  return component;
}

std::string_view withoutSlashesAtEnd(std::string_view path) {
  while (path.ends_with('/')) path.remove_suffix(1);
  return path;
}

// Walks a path link by link. As many links as the kernel allows in one path (path_resolution(7)).
class Walk {
 public:
  explicit Walk(LinkRule rule) : rule_(rule) {}

  // From a folder to what the path means. `followLast` tells whether a link at its end is followed.
  Result<Place> go(const FileDescriptor& start, std::string_view path, bool followLast) {
    Place at;
    auto first = duplicate(start);
    if (!first) return first.error();
    at.item = *std::move(first);
    if (Status status = look(at); !status) return status.error();
    for (std::string_view name = nextComponent(path); !name.empty(); name = nextComponent(path)) {
      if (name == ".") continue;
      if (!at.exists()) return systemError(at.name, ENOENT);
      if (!at.status.isFolder()) return systemError(at.name, ENOTDIR);
      const bool isLast = path.find_first_not_of('/') == std::string_view::npos;
      if (Status status = step(at, name); !status) return status.error();
      if (at.exists() && at.status.isLink() && (followLast || !isLast)) {
        auto led = follow(at);
        if (!led) return led.error();
        at = *std::move(led);
      }
    }
    return at;
  }

  bool wasLed() const { return linksLeft_ < kMostLinks; }

  // From a link to where it leads.
  Result<Place> follow(const Place& link) {
    if (linksLeft_-- == 0) return systemError(link.name, ELOOP);
    const uid_t owner = link.status.owner;
    if (rule_ == LinkRule::OfRoot && owner != 0) {
      return refused("a link on the way to the share is not root's");
    }
    std::string text(PATH_MAX, '\0');
    const ssize_t size = ::readlinkat(link.item.get(), "", text.data(), text.size());
    if (size < 0) return systemError(link.name, errno);
    text.resize(static_cast<size_t>(size));
    FileDescriptor root;
    if (text.starts_with('/')) root = FileDescriptor(::open("/", kPathFlags | O_DIRECTORY));
    auto led = go(root ? root : link.folder, text, true);
    if (!led) {
      // What a link leads to and cannot be had is no ordinary absence.
      return led.error().code == ENOENT ? refused("the link leads nowhere") : led.error();
    }
    if (!led->exists()) return refused("the link leads nowhere");
    if (owner != 0 && owner != led->status.owner) {
      return refused("the link is neither root's nor its target's owner's");
    }
    return led;
  }

 private:
  static constexpr int kMostLinks = 40;

  static Status look(Place& at) {
    auto status = statusOf(at.item.get());
    if (!status) return status.error();
    at.status = *status;
    return {};
  }

  static Status step(Place& at, std::string_view name) {
    Place next;
    next.folder = std::move(at.item);
    next.name = name;
    next.item =
        FileDescriptor(::openat(next.folder.get(), next.name.c_str(), kPathFlags | O_NOFOLLOW));
    if (!next.item && errno != ENOENT) return systemError(next.name, errno);
    at = std::move(next);
    if (at.exists()) {
      if (Status status = look(at); !status) return status;
    }
    if (name == "..") at.folder.reset();
    return {};
  }

  LinkRule rule_;
  int linksLeft_ = kMostLinks;
};

// One call for the whole path, where the kernel knows it and no link stands on the way.
FileDescriptor openWithoutLinks(int start, const char* path, std::uint64_t resolve) {
  open_how how{};
  how.flags = kPathFlags | O_DIRECTORY;
  how.resolve = resolve | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
  return FileDescriptor(static_cast<int>(::syscall(SYS_openat2, start, path, &how, sizeof(how))));
}

// Whether a component at a time may get further: there is a link on the way, something was renamed
// meanwhile, or the call is unknown here, or kept from this process.
bool isWorthWalking(int number) {
  return number == ELOOP || number == EAGAIN || number == ENOSYS || number == EPERM ||
         number == EINVAL || number == E2BIG;
}

// The folder of a path below another: `walk` where openat2 alone does not get there.
Result<Place> folderBelow(const FileDescriptor& top, std::string_view path, Walk& walk) {
  Place place;
  if (path.find_first_not_of('/') == std::string_view::npos) {
    auto folder = duplicate(top);
    if (!folder) return folder.error();
    place.item = *std::move(folder);
  } else {
    path.remove_prefix(path.find_first_not_of('/'));
    place.item = openWithoutLinks(top.get(), std::string(path).c_str(), RESOLVE_BENEATH);
  }
  if (place.item) {
    place.status.mode = S_IFDIR;
    return place;
  }
  if (!isWorthWalking(errno)) return systemError(std::string(path), errno);
  return walk.go(top, path, true);
}

// Whether the path can be walked at all, before anything is opened.
Status checkComponents(std::string_view path) {
  for (std::string_view name = nextComponent(path); !name.empty(); name = nextComponent(path)) {
    if (name == "." || name == "..") return refused("not a path without detours");
    if (isPrivateName(name)) return systemError(std::string(name), ENOENT);
    if (name.size() > NAME_MAX) return systemError("a name", ENAMETOOLONG);
  }
  return {};
}

}  // namespace

bool isPrivateName(std::string_view name) {
  return name == ".DAV" || name.starts_with(".davfs.tmp") || isHiddenName(name);
}

Result<FileDescriptor> openSharedFolder(const std::string& path) {
  FileDescriptor folder = openWithoutLinks(AT_FDCWD, path.c_str(), 0);
  if (folder) return folder;
  if (!isWorthWalking(errno)) return systemError(path, errno);
  const FileDescriptor root(::open("/", kPathFlags | O_DIRECTORY));
  if (!root) return systemError("/", errno);
  Walk walk(LinkRule::OfRoot);
  auto found = walk.go(root, path, true);
  if (!found) return found.error();
  if (!found->exists()) return systemError(path, ENOENT);
  if (!found->status.isFolder()) return systemError(path, ENOTDIR);
  return std::move(found->item);
}

Result<Found> findBelow(const FileDescriptor& top, std::string_view path) {
  if (Status possible = checkComponents(path); !possible) return possible.error();
  const bool endsWithSlash = path.ends_with('/');
  path = withoutSlashesAtEnd(path);
  const size_t slash = path.rfind('/');
  const std::string_view above = slash == std::string_view::npos ? "" : path.substr(0, slash);
  const std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);

  Found found;
  Walk walk(LinkRule::OfRootOrTargetsOwner);
  auto folder = folderBelow(top, above, walk);
  if (!folder) {
    found.isBelowFile = folder.error().code == ENOTDIR;
    if (found.isBelowFile || folder.error().code == ENOENT) return found;
    return folder.error();
  }
  found.wasLed = walk.wasLed();
  if (!folder->exists()) return found;
  if (!folder->status.isFolder()) {
    found.isBelowFile = true;
    return found;
  }
  if (name.empty()) {
    auto status = statusOf(folder->item.get());
    if (!status) return status.error();
    found.target.item = std::move(folder->item);
    found.target.status = *status;
    return found;
  }
  Place& place = found.target;
  place.folder = std::move(folder->item);
  place.name = name;
  place.item =
      FileDescriptor(::openat(place.folder.get(), place.name.c_str(), kPathFlags | O_NOFOLLOW));
  if (!place.item) {
    if (errno == ENOENT) return found;
    return systemError(place.name, errno);
  }
  auto status = statusOf(place.item.get());
  if (!status) return status.error();
  place.status = *status;
  if (place.status.isLink()) {
    auto led = walk.follow(place);
    if (!led) return led.error();
    found.link = std::move(found.target);
    found.target = *std::move(led);
    found.wasLed = true;
  }
  if (!found.target.status.isFile() && !found.target.status.isFolder()) {
    return refused("neither a file nor a folder");
  }
  if (endsWithSlash && found.target.status.isFile()) {
    found.target = Place{};
    found.isBelowFile = true;
  }
  return found;
}

std::string descriptorPath(int descriptor) { return "/proc/self/fd/" + std::to_string(descriptor); }

Result<FileDescriptor> reopen(const FileDescriptor& item, int flags) {
  FileDescriptor opened(::open(descriptorPath(item.get()).c_str(), flags | O_CLOEXEC));
  if (!opened) return systemError("cannot be opened", errno);
  return opened;
}

Result<FileDescriptor> duplicate(const FileDescriptor& descriptor) {
  FileDescriptor copy(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, 0));
  if (!copy) return systemError("cannot duplicate a descriptor", errno);
  return copy;
}

}  // namespace tessel
