// From a URL to a file: name of a share 0xFF path of the URL 0xFF the share's record.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "fuzz/fuzz.h"
#include "host/debian/mod_tessel/files/place.h"
#include "host/debian/mod_tessel/share_folders.h"
#include "host/debian/mod_tessel/share_url.h"
#include "platform/directory/record_name.h"
#include "platform/files/path.h"

using namespace tessel;  // NOLINT(google-build-using-namespace)
using fuzz::require;

namespace {

constexpr const char* kFolder = "/var/lib/share";

void checkURL(std::string_view name) {
  const std::string path = "/webdav//" + std::string(name) + "/";
  const auto url = shareURL("/webdav", path);
  require(url && !shareURL("/webdav", "/webdavs/x"));
  if (hasURL(name)) require(url->kind == ShareURL::Kind::ShareRoot && url->name == name);
}

// Whatever is found lies in the share, since the links in it do not lead out, and is what the
// kernel finds at that path.
void checkFind(const std::string& rest) {
  const auto top = openSharedFolder(kFolder);
  require(static_cast<bool>(top));
  const auto found = findBelow(*top, rest);
  if (!found) {
    require(found.error().code != 0);
    return;
  }
  const Place& place = found->target;
  require(!place.exists() || place.status.isFile() || place.status.isFolder());
  require(place.name.find('/') == std::string::npos && place.name != "..");
  const int descriptor = place.exists() ? place.item.get() : place.folder.get();
  if (descriptor < 0) return;
  const auto path = pathOf(descriptor);
  require(path && (*path + "/").starts_with(std::string(kFolder) + "/"));
  if (!place.exists()) return;
  require(!hasPathComponent(path->substr(std::string_view(kFolder).size()), ".DAV"));
  struct stat byPath {};
  require(::stat((kFolder + rest).c_str(), &byPath) == 0);
  require(byPath.st_ino == place.status.identity.inode);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  fuzz::usePrivateFolders();
  for (const char* folder :
       {"/var/lib/directory", "/var/lib/directory/local", "/var/lib/directory/local/sharepoints",
        kFolder, "/var/lib/share/d", "/var/lib/share/d/d", "/var/lib/share/.DAV"}) {
    require(::mkdir(folder, 0755) == 0);
  }
  fuzz::writeFile("/var/lib/share/f", "");
  fuzz::writeFile("/var/lib/share/d/f", "");
  require(::symlink("d", "/var/lib/share/l") == 0 && ::symlink("x", "/var/lib/share/x") == 0 &&
          ::mkfifo("/var/lib/share/p", 0600) == 0);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view record = fuzz::text(data, size);
  checkURL(fuzz::takeField(record));
  const std::string path = "/webdav" + std::string(fuzz::takeField(record));
  const auto url = shareURL("/webdav", path.c_str());
  if (!url || url->kind == ShareURL::Kind::List) return 0;
  require(hasURL(url->name) || url->name.starts_with('.'));
  require((url->rest.empty() || url->rest.starts_with('/')) &&
          std::string_view(path.c_str()).ends_with(std::string(url->name).append(url->rest)));

  const std::string name(url->name);
  const std::string file = "/var/lib/directory/local/sharepoints/" + recordFileName(name);
  if (file.size() - file.rfind('/') > 256) return 0;
  fuzz::writeFile(file.c_str(), record);
  ShareFolders folders;
  const auto known = folders.folder(name);
  require(static_cast<bool>(known));
  const auto& folder = *known;
  // The record may be that of another name.
  const auto all = folders.all();
  require(all && all->size() <= 1);
  require(all->empty() || *folders.folder(all->front().name) == all->front().folder);
  require(!folder || (all->size() == 1 && all->front().name == name));
  (void)::unlink(file.c_str());
  require(!*folders.folder(name));
  if (!folder) return 0;
  require(folder->starts_with('/') && folder->find('\0') == std::string::npos);

  checkFind(std::string(url->rest));
  return 0;
}
