#include "host/debian/tessel_host/tree_walk.h"

#include <dirent.h>
#include <fcntl.h>

#include <cerrno>
#include <memory>
#include <string_view>
#include <vector>

#include "platform/base/system_error.h"
#include "platform/base/text.h"
#include "platform/files/path.h"

namespace tessel {

namespace {

constexpr int kLook = O_PATH | O_NOFOLLOW | O_CLOEXEC;
constexpr size_t kDeepest = 900;  // each level holds a descriptor

using Reader = std::unique_ptr<DIR, int (*)(DIR*)>;

struct Level {
  Reader reader;
  std::string path;
  FromAbove above;
};

Result<struct stat> look(int descriptor, const std::string& path) {
  struct stat status {};
  if (::fstatat(descriptor, "", &status, AT_EMPTY_PATH) != 0) return systemError(shown(path));
  return status;
}

Result<Reader> read(int folder, const std::string& path) {
  FileDescriptor readable(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  DIR* reader = readable ? ::fdopendir(readable.get()) : nullptr;
  if (reader == nullptr) return systemError(shown(path));
  (void)readable.release();
  return Reader(reader, ::closedir);
}

// The next name, null at the end, and with a number in errno when there is no reading on.
const char* nextName(DIR* reader) {
  for (;;) {
    errno = 0;
    const dirent* entry = ::readdir(reader);
    if (entry == nullptr) return nullptr;
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") return entry->d_name;
  }
}

}  // namespace

Result<FileDescriptor> openFolder(const std::string& path,
                                  const std::function<void(const Visited&)>& onTheWay) {
  const FromAbove nothing;
  std::string at = "/";
  FileDescriptor folder(::open("/", kLook | O_DIRECTORY));
  for (size_t begin = path.find_first_not_of('/'); begin != std::string::npos;
       begin = path.find_first_not_of('/', begin)) {
    if (!folder) return systemError(shown(at));
    const auto status = look(folder.get(), at);
    if (!status) return status.error();
    if (onTheWay) onTheWay({folder.get(), at, *status, nothing});
    const size_t end = path.find('/', begin);
    const std::string name = path.substr(begin, end - begin);
    at = appendPathComponent(at, name);
    folder = FileDescriptor(::openat(folder.get(), name.c_str(), kLook | O_DIRECTORY));
    if (end == std::string::npos) break;
    begin = end;
  }
  if (!folder) return systemError(shown(at));
  return folder;
}

void walkTree(FileDescriptor folder, const std::string& path, const Visitor& visitor,
              const std::function<void(const Error&)>& failed) {
  std::vector<Level> levels;
  const auto visit = [&](const FileDescriptor& item, const std::string& itemPath,
                         const FromAbove& above) {
    const auto status = look(item.get(), itemPath);
    if (!status) return failed(status.error());
    const bool isFolder = S_ISDIR(status->st_mode);
    if (!isFolder && !S_ISREG(status->st_mode)) return;
    auto below = visitor({item.get(), itemPath, *status, above});
    if (!isFolder || !below) return;
    if (levels.size() == kDeepest) return failed(Error{shown(itemPath) + ": too deep"});
    auto reader = read(item.get(), itemPath);
    if (!reader) return failed(reader.error());
    levels.push_back({*std::move(reader), itemPath, *std::move(below)});
  };
  visit(folder, path, {});
  folder.reset();
  while (!levels.empty()) {
    const char* name = nextName(levels.back().reader.get());
    if (name == nullptr) {
      if (errno != 0) failed(systemError(shown(levels.back().path)));
      levels.pop_back();
      continue;
    }
    const std::string itemPath = appendPathComponent(levels.back().path, name);
    const FileDescriptor item(::openat(::dirfd(levels.back().reader.get()), name, kLook));
    if (item) {
      const FromAbove above = levels.back().above;
      visit(item, itemPath, above);
    } else if (errno != ENOENT) {
      failed(systemError(shown(itemPath)));
    }
  }
}

}  // namespace tessel
