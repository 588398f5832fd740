#include "host/debian/mod_tessel/provider/resource.h"

#include <apr_strings.h>

#include <cerrno>

namespace tessel {

namespace {

apr_status_t destroy(void* info) {
  delete static_cast<dav_resource_private*>(info);
  return APR_SUCCESS;
}

std::string withoutSlashesAtEnd(std::string path) {
  while (path.ends_with('/')) path.pop_back();
  return path;
}

}  // namespace

dav_resource* makeResource(apr_pool_t* pool, request_rec* request, const ShareRequest& share,
                           std::string rest, Found found) {
  auto* info = new dav_resource_private{request, &share, withoutSlashesAtEnd(std::move(rest)),
                                        std::move(found)};
  apr_pool_cleanup_register(pool, info, destroy, apr_pool_cleanup_null);
  auto* resource = static_cast<dav_resource*>(apr_pcalloc(pool, sizeof(dav_resource)));
  resource->type = DAV_RESOURCE_TYPE_REGULAR;
  resource->exists = info->found.target.exists() ? 1 : 0;
  resource->collection = resource->exists != 0 && info->found.target.status.isFolder() ? 1 : 0;
  const std::string uri =
      share.prefix + "/" + share.name + info->rest + (resource->collection != 0 ? "/" : "");
  resource->uri = apr_pstrmemdup(pool, uri.data(), uri.size());
  resource->info = info;
  resource->hooks = &kRepositoryHooks;
  resource->pool = pool;
  return resource;
}

const Place& placeOf(const dav_resource_private& info) {
  return info.found.link.exists() ? info.found.link : info.found.target;
}

const File& fileOf(const dav_resource* resource) {
  dav_resource_private& info = *resource->info;
  if (info.file) return *info.file;
  File file;
  const Place& place = info.found.target;
  file.identity = place.status.identity;
  if (place.hasFolder()) {
    if (const auto folder = pathOf(place.folder.get())) {
      file.path = pathInside(*folder, place.name);
    }
  } else if (place.exists()) {
    if (auto path = pathOf(place.item.get())) file.path = *std::move(path);
  }
  if (info.found.wasLed) {
    if (const auto top = pathOf(info.share->folder.get())) file.linkedPath = *top + info.rest;
  }
  return info.file.emplace(std::move(file));
}

void refresh(dav_resource* resource) {
  Place& place = resource->info->found.target;
  place.item.reset();
  place.status = FileStatus{};
  resource->info->file.reset();
  if (auto found = findBelow(resource->info->share->folder, resource->info->rest)) {
    resource->info->found = *std::move(found);
  }
  resource->exists = place.exists() ? 1 : 0;
  resource->collection = place.exists() && place.status.isFolder() ? 1 : 0;
}

State& stateOf(const dav_resource* resource) { return *resource->info->share->server->state; }

std::string parentOf(std::string_view rest) { return std::string(rest.substr(0, rest.rfind('/'))); }

dav_error* fileError(apr_pool_t* pool, const Error& error, const char* what) {
  return dav_new_error(pool, httpStatusOf(error.code), 0, 0,
                       apr_psprintf(pool, "%s: %s", what, error.description.c_str()));
}

dav_error* stateError(request_rec* request, const Error& error) {
  const char* text = apr_pstrdup(request->pool, error.description.c_str());
  switch (kindOf(error)) {
    case StateError::Busy:
      apr_table_setn(request->err_headers_out, "Retry-After", "5");
      return dav_new_error(request->pool, HTTP_SERVICE_UNAVAILABLE, 0, 0, text);
    case StateError::Full:
    case StateError::TooMuch:
      return dav_new_error(request->pool, HTTP_INSUFFICIENT_STORAGE, 0, 0, text);
    case StateError::Locked:
      return dav_new_error(request->pool, HTTP_LOCKED, 0, 0, text);
    case StateError::NoSuchLock:
      return dav_new_error(request->pool, HTTP_PRECONDITION_FAILED, DAV_ERR_LOCK_UNK_STATE_TOKEN, 0,
                           text);
    case StateError::Failed:
      break;
  }
  return dav_new_error(request->pool, HTTP_INTERNAL_SERVER_ERROR, 0, 0, text);
}

}  // namespace tessel
