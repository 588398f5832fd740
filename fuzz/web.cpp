// From a URL to a file: name of a share 0xFF path of the URL 0xFF the share's record.
#include <httpd.h>
// httpd.h comes first.
#include <http_log.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fuzz/fuzz.h"
#include "host/debian/mod_tessel/resource_walk.h"
#include "host/debian/mod_tessel/share_folders.h"
#include "host/debian/mod_tessel/share_url.h"
#include "platform/directory/record_name.h"
#include "platform/files/path.h"

// What resource_walk needs of Apache.
extern "C" {
module AP_MODULE_DECLARE_DATA tessel_module = {};
void ap_log_rerror_(const char* /*file*/, int /*line*/, int /*module*/, int /*level*/,
                    apr_status_t /*status*/, const request_rec* /*request*/, const char* /*format*/,
                    ...) {}
}

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

// A walk gives the same in one go and on top of one that has led to a folder on the way.
void checkWalk(apr_pool_t* pool, const std::string& folder, const std::string& rest) {
  ap_logconf silent{};
  request_rec first{};
  first.pool = pool;
  first.log = &silent;
  request_rec second = first;
  request_rec whole = first;
  const std::string below = rest + "/d/f";
  const int status = walkToResource(&first, folder.c_str(), rest.c_str(), nullptr);
  require(std::string_view(first.filename) == "/nonexistent" || status == OK);
  const int wholeStatus = walkToResource(&whole, folder.c_str(), below.c_str(), nullptr);
  if (status != OK) return;
  require(std::string_view(first.filename).starts_with(folder));
  require(*first.path_info == '\0' || first.finfo.filetype != APR_DIR);
  require(!hasPathComponent(first.filename + folder.size(), ".."));
  const int secondStatus = walkToResource(&second, folder.c_str(), below.c_str(), &first);
  require(secondStatus == wholeStatus);
  require(std::string_view(second.path_info) == whole.path_info);
  require(second.finfo.filetype == whole.finfo.filetype);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  fuzz::usePrivateFolders();
  require(apr_initialize() == APR_SUCCESS);
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
  const auto folder = folders.folder(name);
  require(folders.names() == (folder ? std::vector{name} : std::vector<std::string>{}));
  (void)::unlink(file.c_str());
  require(!folders.folder(name));
  if (!folder) return 0;
  require(folder->starts_with('/') && folder->find('\0') == std::string::npos);

  apr_pool_t* pool = nullptr;
  require(apr_pool_create(&pool, nullptr) == APR_SUCCESS);
  // Other folders would be those of the machine.
  checkWalk(pool, folder->starts_with(kFolder) ? *folder : kFolder, std::string(url->rest));
  apr_pool_destroy(pool);
  return 0;
}
