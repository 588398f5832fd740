#include "host/debian/mod_tessel/share_request.h"

#include <apr_strings.h>
#include <http_config.h>
#include <http_log.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "host/debian/mod_tessel/module.h"
#include "platform/base/system_error.h"

namespace tessel {

namespace {

// Not there.
constexpr const char* kNowhere = "/nonexistent";

apr_status_t destroy(void* share) {
  delete static_cast<ShareRequest*>(share);
  return APR_SUCCESS;
}

void tellApache(request_rec* request, const Found& found) {
  const Place& place = found.target;
  request->filename = apr_pstrcat(request->pool, kNowhere, "/", place.name.c_str(), nullptr);
  request->canonical_filename = request->filename;
  // mod_dav takes a path that goes on beyond what is there for none that could be locked.
  const bool goesOn = found.isBelowFile || (!place.exists() && !place.hasFolder());
  request->path_info = apr_pstrdup(request->pool, goesOn ? "/" : "");
  request->finfo = apr_finfo_t{};
  if (!place.exists()) return;
  constexpr std::int64_t kNanoseconds = 1000;  // in a microsecond
  apr_finfo_t& info = request->finfo;
  info.pool = request->pool;
  info.valid = APR_FINFO_TYPE | APR_FINFO_SIZE | APR_FINFO_MTIME;
  info.filetype = place.status.isFolder() ? APR_DIR : APR_REG;
  info.size = place.status.size;
  info.mtime = place.status.modified / kNanoseconds;
  info.fname = request->filename;
}

int refuse(request_rec* request, const Error& error) {
  const int status = error.code == ENOENT ? HTTP_NOT_FOUND : httpStatusOf(error.code);
  // What the machine cannot do is the administrator's matter.
  const int level = isFailure(error.code) ? APLOG_ERR : APLOG_INFO;
  ap_log_rerror(APLOG_MARK, level, 0, request, "%s: %s", request->uri, error.description.c_str());
  return status;
}

}  // namespace

void nameNothing(request_rec* request) {
  request->filename = apr_pstrdup(request->pool, kNowhere);
  request->canonical_filename = request->filename;
  request->path_info = apr_pstrdup(request->pool, "");
  request->finfo = apr_finfo_t{};
}

bool isNowhere(const request_rec* request) {
  return request->filename != nullptr && std::strcmp(request->filename, kNowhere) == 0;
}

ShareRequest* shareRequestOf(request_rec* request) {
  return static_cast<ShareRequest*>(ap_get_module_config(request->request_config, &tessel_module));
}

bool findShare(request_rec* request, const char* prefix, ServerData& server) {
  const auto url = shareURL(prefix, request->uri);
  if (!url) return false;
  auto* share = new ShareRequest;
  apr_pool_cleanup_register(request->pool, share, destroy, apr_pool_cleanup_null);
  ap_set_module_config(request->request_config, &tessel_module, share);
  share->kind = url->kind;
  share->prefix = prefix;
  share->server = &server;
  nameNothing(request);
  if (url->kind == ShareURL::Kind::List) return true;
  share->name = url->name;
  share->rest = url->rest;
  auto folder = server.folders.folder(share->name);
  if (!folder) {
    share->status = refuse(request, folder.error());
  } else if (*folder) {
    share->isKnown = true;
    share->folderPath = **std::move(folder);
  } else {
    share->status = HTTP_NOT_FOUND;
  }
  return true;
}

void findFile(request_rec* request, ShareRequest& share) {
  if (!share.isKnown || share.wasLookedFor) return;
  share.wasLookedFor = true;
  auto folder = openSharedFolder(share.folderPath);
  if (!folder) {
    // A share without its folder is none, as in the list. But clients take 404 for a reason to
    // delete their copies, so what is not known to be gone is none of it.
    share.status = refuse(request, folder.error());
    if (isAbsence(folder.error().code)) share.status = HTTP_NOT_FOUND;
    return;
  }
  share.folder = *std::move(folder);
  auto found = findBelow(share.folder, share.rest);
  if (!found) {
    share.status = refuse(request, found.error());
    return;
  }
  share.found = *std::move(found);
  tellApache(request, share.found);
}

int httpStatusOf(int number) {
  switch (number) {
    case ENOENT:
    case ENOTDIR:
      return HTTP_CONFLICT;
    case ENOSPC:
    case EDQUOT:
      return HTTP_INSUFFICIENT_STORAGE;
    case EFBIG:
      return HTTP_REQUEST_ENTITY_TOO_LARGE;
    case EACCES:
    case EPERM:
    case EROFS:
    case ELOOP:
    case ENAMETOOLONG:
    case EINVAL:
    case EILSEQ:
    case EXDEV:
    case EISDIR:
      return HTTP_FORBIDDEN;
    case EBUSY:
    case EEXIST:
    case ENOTEMPTY:
    case ETXTBSY:
      return HTTP_CONFLICT;
    case EMFILE:
    case ENFILE:
    case ENOMEM:
    case EAGAIN:
      return HTTP_SERVICE_UNAVAILABLE;
    default:
      return HTTP_INTERNAL_SERVER_ERROR;
  }
}

bool isFailure(int number) { return ap_is_HTTP_SERVER_ERROR(httpStatusOf(number)); }

}  // namespace tessel
