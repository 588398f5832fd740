#include "host/debian/mod_tessel/files/tree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "host/debian/mod_tessel/files/folder_reader.h"
#include "host/debian/mod_tessel/files/hidden.h"
#include "host/debian/mod_tessel/files/new_file.h"

namespace tessel {

namespace {

// Each level takes a descriptor or two of the process.
constexpr int kDeepest = 400;
constexpr const char* kContent = "content";  // of a hidden folder
constexpr int kItemFlags = O_PATH | O_NOFOLLOW | O_CLOEXEC;

Error tooDeep() { return Error{"folders are nested too deep", ENAMETOOLONG}; }

// Opens an entry; no item when it has gone meanwhile.
Result<Place> entryOf(const FileDescriptor& folder, const char* name) {
  Place place;
  place.name = name;
  place.item = FileDescriptor(::openat(folder.get(), name, kItemFlags));
  if (!place.item) {
    if (errno == ENOENT) return place;
    return systemError(name, errno);
  }
  auto status = statusOf(place.item.get());
  if (!status) return status.error();
  place.status = *status;
  return place;
}

bool isFolder(const FileDescriptor& folder, const FolderReader::Entry& entry) {
  if (entry.type != DT_UNKNOWN) return entry.type == DT_DIR;
  const auto status = statusIn(folder.get(), entry.name);
  return status && status->isFolder();
}

Status removeContent(const FileDescriptor& folder, int depth) {
  if (depth > kDeepest) return tooDeep();
  auto reader = FolderReader::open(folder);
  if (!reader) return reader.error();
  Status result;
  for (;;) {
    auto entry = reader->next();
    if (!entry) return entry.error();
    if (!*entry) return result;
    const std::string name = (*entry)->name;
    const bool holds = isFolder(folder, **entry);
    if (holds) {
      const FileDescriptor inner(::openat(folder.get(), name.c_str(), kItemFlags | O_DIRECTORY));
      if (inner) {
        if (Status removed = removeContent(inner, depth + 1); !removed) result = removed;
      }
    }
    if (::unlinkat(folder.get(), name.c_str(), holds ? AT_REMOVEDIR : 0) != 0 && errno != ENOENT &&
        result) {
      result = systemError(name, errno);
    }
  }
}

// Whether a sticky folder keeps this from being removed: there only owners remove.
bool isKept(const FileStatus& item, const FileStatus& folder) {
  const uid_t self = ::geteuid();
  return (folder.mode & S_ISVTX) != 0 && folder.owner != self && item.owner != self && self != 0;
}

// Whether all that is in a folder could be removed.
Status checkRemovable(const FileDescriptor& folder, const FileStatus& status, int depth) {
  if (depth > kDeepest) return tooDeep();
  auto reader = FolderReader::open(folder);
  if (!reader) return reader.error();
  bool isWritable = false;
  for (;;) {
    auto entry = reader->next();
    if (!entry) return entry.error();
    if (!*entry) return {};
    const std::string name = (*entry)->name;
    // An empty folder is removed by whoever may write above it.
    if (!isWritable && ::faccessat(folder.get(), ".", W_OK | X_OK, AT_EACCESS) != 0) {
      return systemError(name, errno);
    }
    isWritable = true;
    const bool isSticky = (status.mode & S_ISVTX) != 0;
    const bool holds = isFolder(folder, **entry);
    if (!isSticky && !holds) continue;
    auto inner = entryOf(folder, name.c_str());
    if (!inner) return inner.error();
    if (!inner->exists()) continue;
    if (isKept(inner->status, status)) return systemError(name, EPERM);
    if (!inner->status.isFolder()) continue;
    if (Status checked = checkRemovable(inner->item, inner->status, depth + 1); !checked) {
      return checked;
    }
  }
}

Status checkRemovable(const Place& place) {
  return place.status.isFolder() ? checkRemovable(place.item, place.status, 0) : Status();
}

class Copier {
 public:
  // `isMove`: everything comes along, with modes and times, or it fails.
  Copier(bool isMove, bool isDeep, const TreeEvents& events)
      : isMove_(isMove), isDeep_(isDeep), events_(events) {}

  // Makes a copy of a tree under a name that is free in `folder`.
  Status copy(const Place& from, const FileDescriptor& folder, const std::string& name,
              const std::string& below, int depth) {
    if (from.status.isFile()) {
      auto made = copyOfFile(from, folder, nullptr, below);
      return made ? made->publish(name, false) : made.error();
    }
    if (from.status.isFolder()) return copyFolder(from, folder, name, below, depth);
    if (isMove_) return systemError(from.name, EXDEV);
    return {};
  }

  // A copy of a file that has yet to be published; one that replaces another takes its attributes.
  Result<NewFile> copyOfFile(const Place& from, const FileDescriptor& folder, const Place* replaced,
                             const std::string& below) {
    const auto source = reopen(from.item, O_RDONLY | O_NONBLOCK);
    if (!source) return source.error();
    // Without anything to go by, a file may be executed if the one that it is copied from may.
    auto made = NewFile::create(folder, (from.status.mode & S_IXUSR) != 0 ? 0777 : 0666);
    if (!made) return made;
    if (Status copied = made->copyFrom(*source); !copied) return copied.error();
    const bool takesAll = isMove_ || replaced != nullptr;
    const Place& model = isMove_ || replaced == nullptr ? from : *replaced;
    Status kept = takesAll ? made->takeAttributesOf(model.item, model.status)
                           : copyUserAttributes(descriptorPath(from.item.get()),
                                                descriptorPath(made->descriptor().get()));
    if (!kept) return kept.error();
    if (isMove_) {
      const auto now = statusOf(from.item.get());
      if (!now || now->size != from.status.size || now->modified != from.status.modified) {
        return Error{from.name + ": has changed while it was copied", EBUSY};
      }
      setTimes(made->descriptor().get(), from.status);
    }
    if (Status told = tell(from, made->descriptor(), below); !told) return told.error();
    return made;
  }

  // To be told before the copy is shown, which may be refused then.
  Status isComplete() const { return events_.willShow ? events_.willShow() : Status(); }

 private:
  Status copyFolder(const Place& from, const FileDescriptor& folder, const std::string& name,
                    const std::string& below, int depth) {
    if (depth > kDeepest) return tooDeep();
    if (::mkdirat(folder.get(), name.c_str(), 0777) != 0) return systemError(name, errno);
    const FileDescriptor made(::openat(folder.get(), name.c_str(), kItemFlags | O_DIRECTORY));
    if (!made) return systemError(name, errno);
    if (Status told = tell(from, made, below); !told) return told;
    if (isDeep_) {
      if (Status copied = copyContent(from, made, below, depth); !copied) return copied;
    }
    if (!isMove_) return {};
    const auto open = reopen(made, O_RDONLY | O_DIRECTORY);
    if (!open) return open.error();
    if (::fchmod(open->get(), from.status.mode & 0777) != 0) return systemError(name, errno);
    setTimes(open->get(), from.status);
    return copyUserAttributes(descriptorPath(from.item.get()), descriptorPath(made.get()));
  }

  Status copyContent(const Place& from, const FileDescriptor& made, const std::string& below,
                     int depth) {
    auto reader = FolderReader::open(from.item);
    if (!reader) return reader.error();
    for (;;) {
      auto entry = reader->next();
      if (!entry) return entry.error();
      if (!*entry) return {};
      if (isPrivateName((*entry)->name)) continue;
      auto inner = entryOf(from.item, (*entry)->name);
      if (!inner) return inner.error();
      if (!inner->exists()) continue;
      Status copied = copy(*inner, made, inner->name, below + "/" + inner->name, depth + 1);
      if (!copied) return copied;
    }
  }

  Status tell(const Place& from, const FileDescriptor& made, const std::string& below) const {
    if (!events_.copied) return {};
    const auto status = statusOf(made.get());
    if (!status) return status.error();
    return events_.copied(below, from.status.identity, status->identity);
  }

  static void setTimes(int descriptor, const FileStatus& status) {
    const std::array<timespec, 2> times{timespec{0, UTIME_OMIT}, timespecOf(status.modified)};
    (void)::futimens(descriptor, times.data());
  }

  bool isMove_;
  bool isDeep_;
  const TreeEvents& events_;
};

// Shows what lies ready in `ready` under `name` at a place. What stood there comes to lie where it
// lay.
Status show(const FileDescriptor& ready, const std::string& name, const Place& to) {
  unsigned flags = to.exists() ? RENAME_EXCHANGE : RENAME_NOREPLACE;
  if (::renameat2(ready.get(), name.c_str(), to.folder.get(), to.name.c_str(), flags) == 0) {
    return {};
  }
  if (errno != EINVAL) return systemError("cannot be put in place", errno);
  // File systems that know neither.
  constexpr const char* kOld = "old";
  if (to.exists() && ::renameat(to.folder.get(), to.name.c_str(), ready.get(), kOld) != 0) {
    return systemError("what is there cannot be replaced", errno);
  }
  if (::renameat(ready.get(), name.c_str(), to.folder.get(), to.name.c_str()) == 0) return {};
  const int number = errno;
  if (to.exists()) (void)::renameat(ready.get(), kOld, to.folder.get(), to.name.c_str());
  return systemError("cannot be put in place", number);
}

// Takes a folder away where the disk is full, which removing must be able to mend. It takes no
// other folder; what a process leaves that is killed meanwhile nobody can tell for ours, and it
// stays.
Status takeAwayWhereItIs(const Place& place) {
  const auto name = newHiddenName();
  if (!name) return name.error();
  if (::renameat2(place.folder.get(), place.name.c_str(), place.folder.get(), name->c_str(),
                  RENAME_NOREPLACE) != 0) {
    return systemError("cannot be removed", errno);
  }
  (void)removeContent(place.item, 0);
  (void)::unlinkat(place.folder.get(), name->c_str(), AT_REMOVEDIR);
  return {};
}

// Takes a folder away from clients at once, and then apart.
Status takeAway(const Place& place) {
  auto hidden = HiddenFolder::create(place.folder);
  if (!hidden) {
    const bool isFull = hidden.error().code == ENOSPC || hidden.error().code == EDQUOT;
    return isFull ? takeAwayWhereItIs(place) : hidden.error();
  }
  if (::renameat(place.folder.get(), place.name.c_str(), hidden->descriptor().get(), kContent) !=
      0) {
    return systemError("cannot be removed", errno);
  }
  return {};
}

// The part of copying that a move to another file system does as well.
Status copyAndShow(const Place& from, const Place& to, Copier& copier) {
  if (from.status.isFile() && (!to.exists() || !to.status.isFolder())) {
    auto made = copier.copyOfFile(from, to.folder, to.exists() ? &to : nullptr, "");
    if (!made) return made.error();
    if (Status ready = copier.isComplete(); !ready) return ready;
    return made->publish(to.name, to.exists());
  }
  if (to.exists()) {
    if (Status removable = checkRemovable(to); !removable) return removable;
  }
  auto hidden = HiddenFolder::create(to.folder);
  if (!hidden) return hidden.error();
  if (Status copied = copier.copy(from, hidden->descriptor(), kContent, "", 0); !copied) {
    return copied;
  }
  if (Status ready = copier.isComplete(); !ready) return ready;
  return show(hidden->descriptor(), kContent, to);
}

// A rename that replaces nothing, where the file system knows that; 0 or errno.
int renameOnly(const Place& from, const Place& to) {
  const auto rename = [&from, &to](unsigned flags) {
    const int result =
        ::renameat2(from.folder.get(), from.name.c_str(), to.folder.get(), to.name.c_str(), flags);
    return result == 0 ? 0 : errno;
  };
  const int failure = rename(RENAME_NOREPLACE);
  return failure == EINVAL ? rename(0) : failure;
}

// Renames where a folder replaces something or is replaced, which a rename alone cannot do. What
// stands there goes first: if the two were exchanged, whoever repeats a move that was cut off just
// then would move the old one over the new one.
Status renameOver(const Place& from, const Place& to) {
  // Tells a rename to another file system, before anything is touched.
  const int first = renameOnly(from, to);
  if (first != EEXIST && first != ENOTEMPTY && first != ENOTDIR && first != EISDIR) {
    return first == 0 ? Status() : systemError("cannot be moved", first);
  }
  const auto hidden = HiddenFolder::create(to.folder);
  if (!hidden) return hidden.error();
  const int aside = hidden->descriptor().get();
  if (::renameat(to.folder.get(), to.name.c_str(), aside, kContent) != 0) {
    return systemError("what is there cannot be replaced", errno);
  }
  const int failure = renameOnly(from, to);
  if (failure == 0) return {};
  (void)::renameat(aside, kContent, to.folder.get(), to.name.c_str());
  return systemError("cannot be moved", failure);
}

// Renames, in place of what stands at the destination. EXDEV when a rename cannot do that.
Status renameItem(const Place& from, const Place& to, const TreeEvents& events) {
  if (events.willRename) {
    if (Status ready = events.willRename(); !ready) return ready;
  }
  Status renamed;
  if (to.exists() && (from.status.isFolder() || to.status.isFolder())) {
    renamed = renameOver(from, to);
  } else if (!to.exists()) {
    const int failure = renameOnly(from, to);
    if (failure != 0) renamed = systemError("cannot be moved", failure);
  } else if (::renameat(from.folder.get(), from.name.c_str(), to.folder.get(), to.name.c_str()) !=
             0) {
    renamed = systemError("cannot be moved", errno);
  }
  if (!renamed && events.didNotRename) events.didNotRename();
  return renamed;
}

}  // namespace

Status removeContent(const FileDescriptor& folder) { return removeContent(folder, 0); }

Status copyItem(const Place& from, const Place& to, bool deep, const TreeEvents& events) {
  if (!to.hasFolder()) return systemError("cannot be replaced", EPERM);
  Copier copier(false, deep, events);
  return copyAndShow(from, to, copier);
}

Status moveItem(const Place& from, const Place& to, const TreeEvents& events) {
  if (!from.hasFolder() || !to.hasFolder()) return systemError("cannot be moved", EPERM);
  if (to.exists()) {
    if (Status removable = checkRemovable(to); !removable) return removable;
  }
  Status renamed = renameItem(from, to, events);
  if (renamed || renamed.error().code != EXDEV) return renamed;
  if (Status removable = checkRemovable(from); !removable) return removable;
  if (::faccessat(from.folder.get(), ".", W_OK | X_OK, AT_EACCESS) != 0) {
    return systemError(from.name, errno);
  }
  const auto above = statusOf(from.folder.get());
  if (!above) return above.error();
  if (isKept(from.status, *above)) return systemError(from.name, EPERM);
  Copier copier(true, true, events);
  if (!from.status.isFile() && !from.status.isFolder()) return renamed;
  if (Status copied = copyAndShow(from, to, copier); !copied) return copied;
  return removeItem(from);
}

Status removeItem(const Place& place) {
  if (!place.hasFolder()) return systemError("cannot be removed", EPERM);
  const bool isFolder = place.status.isFolder();
  if (::unlinkat(place.folder.get(), place.name.c_str(), isFolder ? AT_REMOVEDIR : 0) == 0) {
    return {};
  }
  if (!isFolder || (errno != ENOTEMPTY && errno != EEXIST)) {
    return systemError("cannot be removed", errno);
  }
  if (Status removable = checkRemovable(place); !removable) return removable;
  return takeAway(place);
}

}  // namespace tessel
