#include "host/debian/mod_tessel/resource_walk.h"

#include <apr_file_info.h>
#include <apr_strings.h>
#include <http_log.h>

#include <algorithm>
#include <string>
#include <string_view>

APLOG_USE_MODULE(tessel);

namespace tessel {

namespace {

constexpr apr_int32_t kWanted = APR_FINFO_MIN | APR_FINFO_OWNER | APR_FINFO_PROT;

int refuse(request_rec* request, const std::string& path, const char* reason) {
  ap_log_rerror(APLOG_MARK, APLOG_INFO, 0, request, "%s: %s", path.c_str(), reason);
  return HTTP_FORBIDDEN;
}

// Looks at one step of the path. A link is followed when its owner is its target's.
int lookAt(request_rec* request, const std::string& path, apr_finfo_t* found) {
  const apr_status_t failure =
      apr_stat(found, path.c_str(), kWanted | APR_FINFO_LINK, request->pool);
  if (APR_STATUS_IS_ENOENT(failure)) {
    found->filetype = APR_NOFILE;
    return OK;
  }
  if (failure != APR_SUCCESS) return refuse(request, path, "cannot be looked at");
  if (found->filetype == APR_LNK) {
    const apr_uid_t linkOwner = found->user;
    if (apr_stat(found, path.c_str(), kWanted, request->pool) != APR_SUCCESS) {
      return refuse(request, path, "the link leads nowhere");
    }
    if (found->user != linkOwner)
      return refuse(request, path, "the link's target has another owner");
  }
  if (found->filetype != APR_REG && found->filetype != APR_DIR) {
    return refuse(request, path, "no file and no folder");
  }
  return OK;
}

int walk(request_rec* request, std::string path, std::string_view rest, const request_rec* walked) {
  apr_finfo_t found{};
  const std::string whole = path + std::string(rest);
  const std::string known = walked != nullptr ? std::string(walked->filename) + "/" : "";
  if (walked != nullptr && walked->finfo.filetype == APR_DIR && whole.starts_with(known)) {
    found = walked->finfo;
    path = walked->filename;
    rest = std::string_view(whole).substr(known.size());
  } else if (apr_stat(&found, path.c_str(), kWanted, request->pool) != APR_SUCCESS ||
             found.filetype != APR_DIR) {
    return HTTP_NOT_FOUND;
  }
  while (found.filetype == APR_DIR) {
    rest.remove_prefix(std::min(rest.find_first_not_of('/'), rest.size()));
    if (rest.empty()) break;
    const std::string_view name = rest.substr(0, rest.find('/'));
    rest.remove_prefix(name.size());
    // Apache has resolved these; mod_dav keeps its properties in folders of this name.
    if (name == "." || name == "..") return HTTP_FORBIDDEN;
    if (name == ".DAV") return HTTP_NOT_FOUND;
    if (!path.ends_with('/')) path += '/';
    path += name;
    if (const int status = lookAt(request, path, &found); status != OK) return status;
  }
  request->filename = apr_pstrmemdup(request->pool, path.data(), path.size());
  request->canonical_filename = request->filename;
  request->path_info = apr_pstrmemdup(request->pool, rest.data(), rest.size());
  request->finfo = found;
  request->finfo.fname = request->filename;
  return OK;
}

}  // namespace

int walkToResource(request_rec* request, const char* folder, const char* rest,
                   const request_rec* walked) {
  const int status = walk(request, folder, rest, walked);
  if (status != OK) nameNothing(request);
  return status;
}

void nameNothing(request_rec* request) {
  request->filename = apr_pstrdup(request->pool, "/nonexistent");
  request->canonical_filename = request->filename;
  request->path_info = apr_pstrdup(request->pool, "");
  request->finfo = apr_finfo_t{};
}

}  // namespace tessel
