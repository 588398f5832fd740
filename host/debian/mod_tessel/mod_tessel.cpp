// The Apache module that serves shares: where "TesselShares on" stands in a <Location>, it
// translates LOCATION/NAME/REST to the folder of the WebDAV share NAME, leaves reading and writing
// to Apache and mod_dav, and answers for LOCATION/ itself with a list of the shares.
//
// A request is refused after its user has signed in, so that nobody else learns which shares exist:
// the hooks that run before only note the status.
#include <httpd.h>
// httpd.h comes first: the others need its types.
#include <apr_strings.h>
#include <apr_xml.h>
#include <http_config.h>
#include <http_core.h>
#include <http_log.h>
#include <http_protocol.h>
#include <http_request.h>
#include <util_xml.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "host/debian/mod_tessel/identity_check.h"
#include "host/debian/mod_tessel/identity_lock.h"
#include "host/debian/mod_tessel/property_request.h"
#include "host/debian/mod_tessel/resource_walk.h"
#include "host/debian/mod_tessel/share_folders.h"
#include "host/debian/mod_tessel/share_listing.h"
#include "host/debian/mod_tessel/share_url.h"

extern "C" {
// What Apache looks for in the file, and all that it shows.
extern module AP_MODULE_DECLARE_DATA tessel_module __attribute__((visibility("default")));
}
APLOG_USE_MODULE(tessel);

namespace tessel {

namespace {

constexpr const char* kListHandler = "tessel-share-list";
constexpr const char* kFileHandler = "default-handler";
constexpr const char* kDavHandler = "dav-handler";

struct Location {
  const char* prefix;  // "/webdav"; null where shares are not served
};

// What a request means.
struct Resource {
  ShareURL::Kind kind;
  int status;          // OK, or what to answer with
  const char* prefix;  // of the location
  const char* name;    // of the share, null for the list
  const char* folder;  // of the share, null when there is none
  const char* rest;    // of the URL, below the share
};

template <typename T>
T* configOf(ap_conf_vector_t* vector) {
  return static_cast<T*>(ap_get_module_config(vector, &tessel_module));
}

ShareFolders& foldersOf(request_rec* request) {
  return *configOf<ShareFolders>(request->server->module_config);
}

// What the request means of which this is a subrequest. For the entries of a folder mod_dav makes
// one each, which need not find everything anew.
const Resource* outerResource(request_rec* request) {
  return request->main == nullptr ? nullptr : configOf<Resource>(request->main->request_config);
}

// Before authentication: which share is meant?
int translateName(request_rec* request) {
  const char* prefix = configOf<Location>(request->per_dir_config)->prefix;
  if (prefix == nullptr) return DECLINED;
  const auto url = shareURL(prefix, request->uri);
  if (!url) return DECLINED;

  apr_pool_t* pool = request->pool;
  auto* resource = static_cast<Resource*>(apr_pcalloc(pool, sizeof(Resource)));
  resource->prefix = prefix;
  ap_set_module_config(request->request_config, &tessel_module, resource);
  resource->kind = url->kind;
  nameNothing(request);
  if (url->kind == ShareURL::Kind::List) return OK;
  const std::string name(url->name);
  resource->name = apr_pstrmemdup(pool, name.data(), name.size());
  resource->rest = apr_pstrmemdup(pool, url->rest.data(), url->rest.size());
  const Resource* outer = outerResource(request);
  if (outer != nullptr && outer->name != nullptr && outer->name == name) {
    resource->folder = outer->folder;
  } else if (const auto folder = foldersOf(request).folder(name)) {
    resource->folder = apr_pstrmemdup(pool, folder->data(), folder->size());
  }
  if (resource->folder == nullptr) resource->status = HTTP_NOT_FOUND;
  return OK;
}

// Before authentication, in place of Apache's walk through <Directory> sections.
int mapToStorage(request_rec* request) {
  auto* resource = configOf<Resource>(request->request_config);
  if (resource == nullptr) return DECLINED;
  if (resource->folder != nullptr) {
    const Resource* outer = outerResource(request);
    const bool isWalked = outer != nullptr && outer->folder != nullptr && outer->status == OK;
    resource->status = walkToResource(request, resource->folder, resource->rest,
                                      isWalked ? request->main : nullptr);
  }
  return OK;
}

// Whether the request would remove, replace or move what it names. mod_dav looks up the destination
// of a COPY or MOVE by a subrequest of the same method.
bool wouldTakeAway(request_rec* request) {
  const int method = request->method_number;
  if (request->main != nullptr) return method == M_COPY || method == M_MOVE;
  return method == M_DELETE || method == M_MOVE;
}

// After authentication: who answers, if anybody?
int decide(request_rec* request) {
  const auto* resource = configOf<Resource>(request->request_config);
  if (resource == nullptr) return DECLINED;
  if (resource->status != OK) return resource->status;
  if (resource->kind != ShareURL::Kind::InsideShare && wouldTakeAway(request)) {
    return HTTP_FORBIDDEN;
  }
  if (request->method_number == M_POST) return HTTP_METHOD_NOT_ALLOWED;
  const bool isCollection =
      resource->kind == ShareURL::Kind::List || request->finfo.filetype == APR_DIR;
  const bool isGet = request->method_number == M_GET;
  if (isGet && isCollection && request->main == nullptr) return HTTP_FORBIDDEN;
  if (resource->kind == ShareURL::Kind::List) {
    request->handler = kListHandler;
  } else if (isGet || request->handler == nullptr ||
             std::strcmp(request->handler, kDavHandler) != 0) {
    // Whatever handler a file's name or type would choose: it is data.
    request->handler = kFileHandler;
  }
  return OK;
}

// The collection of all shares and, if wanted, each of them. A share counts when its folder exists
// and a URL can hold its name.
std::vector<ListedCollection> collections(request_rec* request, const Resource& resource,
                                          bool withShares) {
  const std::string base = std::string(resource.prefix) + "/";
  std::vector<ListedCollection> listed{{base, base.substr(base.rfind('/', base.size() - 2) + 1),
                                        apr_time_sec(request->request_time)}};
  listed.front().name.pop_back();
  if (!withShares) return listed;
  for (const std::string& name : foldersOf(request).names()) {
    if (!hasURL(name)) continue;
    const auto folder = foldersOf(request).folder(name);
    apr_finfo_t found{};
    if (!folder || apr_stat(&found, folder->c_str(), APR_FINFO_MIN, request->pool) != APR_SUCCESS ||
        found.filetype != APR_DIR) {
      continue;
    }
    listed.push_back({base + percentEncoded(name) + "/", name, apr_time_sec(found.mtime)});
  }
  return listed;
}

int answerPropfind(request_rec* request, const Resource& resource) {
  const char* depth = apr_table_get(request->headers_in, "Depth");
  if (depth == nullptr || ap_cstr_casecmp(depth, "infinity") == 0) {
    // As mod_dav does below: the whole of all shares is no answer to a request.
    ap_set_content_type(request, "text/xml; charset=\"utf-8\"");
    request->status = HTTP_FORBIDDEN;
    ap_rputs(
        "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
        "<D:error xmlns:D=\"DAV:\"><D:propfind-finite-depth/></D:error>\n",
        request);
    return OK;
  }
  const bool withShares = std::strcmp(depth, "1") == 0;
  if (!withShares && std::strcmp(depth, "0") != 0) return HTTP_BAD_REQUEST;
  apr_xml_doc* document = nullptr;
  if (const int status = ap_xml_parse_input(request, &document); status != OK) return status;
  const auto asked = propertyRequest(document, request->pool);
  if (!asked) return HTTP_BAD_REQUEST;
  const std::string body = multistatus(collections(request, resource, withShares), *asked);
  request->status = HTTP_MULTI_STATUS;
  ap_set_content_type(request, "text/xml; charset=\"utf-8\"");
  ap_set_content_length(request, static_cast<apr_off_t>(body.size()));
  ap_rwrite(body.data(), static_cast<int>(body.size()), request);
  return OK;
}

int answerForList(request_rec* request) {
  if (request->handler == nullptr || std::strcmp(request->handler, kListHandler) != 0) {
    return DECLINED;
  }
  if (request->method_number == M_PROPFIND) {
    return answerPropfind(request, *configOf<Resource>(request->request_config));
  }
  if (const int status = ap_discard_request_body(request); status != OK) return status;
  apr_table_setn(request->headers_out, "Allow", "OPTIONS,PROPFIND");
  if (request->method_number != M_OPTIONS) return HTTP_METHOD_NOT_ALLOWED;
  // What the shares below can do: some clients decide by the collection that they were given.
  apr_table_setn(request->headers_out, "DAV", "1,2");
  apr_table_setn(request->headers_out, "MS-Author-Via", "DAV");
  ap_set_content_length(request, 0);
  return OK;
}

// The boundary to Apache, which is C: no exception may cross it.
template <int (*Hook)(request_rec*)>
int guarded(request_rec* request) {
  try {
    return Hook(request);
  } catch (...) {
    ap_log_rerror(APLOG_MARK, APLOG_ERR, 0, request, "out of memory");
    return HTTP_INTERNAL_SERVER_ERROR;
  }
}

void registerHooks(apr_pool_t* pool) {
  registerIdentityLock(pool);
  ap_hook_translate_name(guarded<translateName>, nullptr, nullptr, APR_HOOK_FIRST);
  ap_hook_map_to_storage(guarded<mapToStorage>, nullptr, nullptr, APR_HOOK_FIRST);
  ap_hook_fixups(guarded<decide>, nullptr, nullptr, APR_HOOK_LAST);
  ap_hook_handler(guarded<answerForList>, nullptr, nullptr, APR_HOOK_MIDDLE);
}

void* createLocation(apr_pool_t* pool, char* /*path*/) {
  return apr_pcalloc(pool, sizeof(Location));
}

void* mergeLocations(apr_pool_t* /*pool*/, void* outer, void* inner) {
  return static_cast<Location*>(inner)->prefix != nullptr ? inner : outer;
}

apr_status_t deleteFolders(void* folders) {
  delete static_cast<ShareFolders*>(folders);
  return APR_SUCCESS;
}

// Each child process of Apache knows folders of its own.
void* createFolders(apr_pool_t* pool, server_rec* /*server*/) {
  auto* folders = new (std::nothrow) ShareFolders;
  if (folders == nullptr) std::abort();
  apr_pool_cleanup_register(pool, folders, deleteFolders, apr_pool_cleanup_null);
  return folders;
}

const char* setShares(cmd_parms* command, void* location, int on) {
  if (command->path == nullptr || command->path[0] != '/') {
    return "TesselShares belongs into a <Location> with a path";
  }
  std::string_view prefix = command->path;
  while (prefix.ends_with('/')) prefix.remove_suffix(1);
  static_cast<Location*>(location)->prefix =
      on != 0 ? apr_pstrmemdup(command->pool, prefix.data(), prefix.size()) : nullptr;
  return nullptr;
}

// Apache stores functions of all shapes as one type and calls them by the shape that goes with the
// directive.
template <typename Function>
cmd_func asCommand(Function* function) {
  return reinterpret_cast<cmd_func>(reinterpret_cast<void (*)()>(function));
}

// NOLINTNEXTLINE(cert-err58-cpp,modernize-avoid-c-arrays): as Apache's macros want it
const command_rec kDirectives[] = {
    AP_INIT_FLAG("TesselShares", asCommand(setShares), nullptr, ACCESS_CONF,
                 "on: serve the WebDAV shares of this host below this location"),
    AP_INIT_TAKE3("TesselIdentity", asCommand(checkIdentity), nullptr, RSRC_CONF | EXEC_ON_READ,
                  "certificate, key and the program that prints the key's pass phrase"),
    {}};

}  // namespace

}  // namespace tessel

extern "C" {
module AP_MODULE_DECLARE_DATA tessel_module = {STANDARD20_MODULE_STUFF,
                                               tessel::createLocation,
                                               tessel::mergeLocations,
                                               tessel::createFolders,
                                               nullptr,
                                               tessel::kDirectives,
                                               tessel::registerHooks,
                                               0};
}
