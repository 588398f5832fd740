// The Apache module that serves shares: where "TesselShares on" stands in a <Location>, it
// translates LOCATION/NAME/REST to the folder of the WebDAV share NAME, sends files and lists
// folders, and gives mod_dav what it needs for the rest (provider/).
//
// Where "TesselEntrance PATH" stands, "/" leads to that, and errors are pages for browsers.
//
// A request is refused after its user has signed in, so that nobody else learns which shares exist:
// the hooks that run before only note the status.
#include <httpd.h>
// httpd.h comes first: the others need its types.
#include <apr_strings.h>
#include <http_config.h>
#include <http_core.h>
#include <http_log.h>
#include <http_protocol.h>
#include <http_request.h>
#include <unixd.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "host/debian/apache_command.h"
#include "host/debian/mod_tessel/browse.h"
#include "host/debian/mod_tessel/download.h"
#include "host/debian/mod_tessel/entrance.h"
#include "host/debian/mod_tessel/error_body.h"
#include "host/debian/mod_tessel/identity_check.h"
#include "host/debian/mod_tessel/identity_lock.h"
#include "host/debian/mod_tessel/propfind.h"
#include "host/debian/mod_tessel/provider/provider.h"
#include "host/debian/mod_tessel/share_request.h"
#include "host/debian/mod_tessel/share_url.h"
#include "host/debian/mod_tessel/state_folder.h"

extern "C" {
// What Apache looks for in the file, and all that it shows.
extern module AP_MODULE_DECLARE_DATA tessel_module __attribute__((visibility("default")));
}
APLOG_USE_MODULE(tessel);

namespace tessel {

namespace {

constexpr const char* kOwnHandler = "tessel";
constexpr const char* kEntranceHandler = "tessel-entrance";
constexpr const char* kDavHandler = "dav-handler";

struct Location {
  const char* prefix;    // "/webdav"; null where shares are not served
  const char* entrance;  // the same, for where "/" leads; null where it is not ours
};

template <typename T>
T* configOf(ap_conf_vector_t* vector) {
  return static_cast<T*>(ap_get_module_config(vector, &tessel_module));
}

bool isEntrance(const request_rec* request) {
  return configOf<Location>(request->per_dir_config)->entrance != nullptr &&
         std::strcmp(request->uri, "/") == 0;
}

// Before authentication: which share is meant?
int translateName(request_rec* request) {
  if (isEntrance(request)) {
    nameNothing(request);
    return OK;
  }
  const char* prefix = configOf<Location>(request->per_dir_config)->prefix;
  if (prefix == nullptr) return DECLINED;
  auto* server = configOf<ServerData>(request->server->module_config);
  return findShare(request, prefix, *server) ? OK : DECLINED;
}

// After all others were asked: beside the shares there is nothing, and no folder of another site.
int translateRest(request_rec* request) {
  if (configOf<Location>(request->per_dir_config)->entrance == nullptr) return DECLINED;
  nameNothing(request);
  return OK;
}

// In place of Apache's walk through <Directory> sections.
int mapToStorage(request_rec* request) {
  return shareRequestOf(request) != nullptr || isNowhere(request) ? OK : DECLINED;
}

// After authentication, and before the type is told from what was found.
int find(request_rec* request) {
  ShareRequest* share = shareRequestOf(request);
  if (share != nullptr) findFile(request, *share);
  return DECLINED;
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
  if (isEntrance(request)) {
    request->handler = kEntranceHandler;
    return OK;
  }
  const ShareRequest* share = shareRequestOf(request);
  if (share == nullptr) return DECLINED;
  if (share->status != OK) return share->status;
  if (share->kind != ShareURL::Kind::InsideShare && wouldTakeAway(request)) {
    return HTTP_FORBIDDEN;
  }
  if (request->method_number == M_POST) return HTTP_METHOD_NOT_ALLOWED;
  const bool isList = share->kind == ShareURL::Kind::List;
  const bool isGet = request->method_number == M_GET;
  // Whatever handler a file's name or type would choose: it is data.
  const bool isOwn = isList || isGet || request->method_number == M_PROPFIND;
  request->handler = isOwn ? kOwnHandler : kDavHandler;
  return OK;
}

int answerGet(request_rec* request, const ShareRequest& share) {
  if (share.kind == ShareURL::Kind::List) return answerShareListPage(request, share);
  const Place& found = share.found.target;
  return found.exists() && found.status.isFolder() ? answerFolderPage(request, share)
                                                   : answerDownload(request, share);
}

int answer(request_rec* request) {
  if (request->handler == nullptr) return DECLINED;
  if (std::strcmp(request->handler, kEntranceHandler) == 0 && isEntrance(request)) {
    return answerEntrance(request, configOf<Location>(request->per_dir_config)->entrance);
  }
  if (std::strcmp(request->handler, kOwnHandler) != 0) return DECLINED;
  ShareRequest* share = shareRequestOf(request);
  if (share == nullptr) return DECLINED;
  if (request->method_number == M_PROPFIND) return answerPropfind(request, *share);
  if (request->method_number == M_GET) return answerGet(request, *share);
  // Only of the list: everything else of a share is mod_dav's.
  return answerOptions(request);
}

// The boundary to Apache, which is C: no exception may cross it.
template <int (*Hook)(request_rec*)>
int safely(request_rec* request) {
  try {
    return Hook(request);
  } catch (...) {
    ap_log_rerror(APLOG_MARK, APLOG_ERR, 0, request, "out of memory");
    return HTTP_INTERNAL_SERVER_ERROR;
  }
}

void giveErrorBody(request_rec* request) {
  const char* prefix = configOf<Location>(request->per_dir_config)->entrance;
  if (prefix == nullptr) return;
  try {
    setErrorBody(request, prefix);
  } catch (...) {
    ap_log_rerror(APLOG_MARK, APLOG_ERR, 0, request, "out of memory");
  }
}

apr_status_t closeState(void* state) {
  delete static_cast<State*>(state);
  return APR_SUCCESS;
}

// One for all threads of a child process, whichever servers they serve.
void openState(apr_pool_t* pool, server_rec* main) {
  State::Options options;
  options.log = [main](const std::string& line) {
    ap_log_error(APLOG_MARK, APLOG_ERR, 0, main, "%s", line.c_str());
  };
  auto* state = new State(std::move(options));
  apr_pool_cleanup_register(pool, state, closeState, apr_pool_cleanup_null);
  for (server_rec* server = main; server != nullptr; server = server->next) {
    configOf<ServerData>(server->module_config)->state = state;
  }
}

void registerHooks(apr_pool_t* pool) {
  registerIdentityLock(pool);
  registerStateFolder();
  registerProvider(pool);
  ap_hook_child_init(openState, nullptr, nullptr, APR_HOOK_MIDDLE);
  ap_hook_translate_name(safely<translateName>, nullptr, nullptr, APR_HOOK_FIRST);
  ap_hook_translate_name(safely<translateRest>, nullptr, nullptr, APR_HOOK_LAST);
  ap_hook_map_to_storage(safely<mapToStorage>, nullptr, nullptr, APR_HOOK_FIRST);
  ap_hook_type_checker(safely<find>, nullptr, nullptr, APR_HOOK_FIRST);
  ap_hook_fixups(safely<decide>, nullptr, nullptr, APR_HOOK_LAST);
  ap_hook_handler(safely<answer>, nullptr, nullptr, APR_HOOK_MIDDLE);
  ap_hook_insert_error_filter(giveErrorBody, nullptr, nullptr, APR_HOOK_MIDDLE);
}

void* createLocation(apr_pool_t* pool, char* /*path*/) {
  return apr_pcalloc(pool, sizeof(Location));
}

void* mergeLocations(apr_pool_t* pool, void* outer, void* inner) {
  auto* merged = static_cast<Location*>(apr_pmemdup(pool, inner, sizeof(Location)));
  const auto* above = static_cast<const Location*>(outer);
  if (merged->prefix == nullptr) merged->prefix = above->prefix;
  if (merged->entrance == nullptr) merged->entrance = above->entrance;
  return merged;
}

apr_status_t deleteServer(void* server) {
  delete static_cast<ServerData*>(server);
  return APR_SUCCESS;
}

// Each child process of Apache knows folders of its own.
void* createServer(apr_pool_t* pool, server_rec* /*server*/) {
  auto* server = new (std::nothrow) ServerData;
  if (server == nullptr) std::abort();
  apr_pool_cleanup_register(pool, server, deleteServer, apr_pool_cleanup_null);
  return server;
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

const char* setEntrance(cmd_parms* /*command*/, void* location, const char* path) {
  if (path[0] != '/') return "TesselEntrance needs the path of a location";
  static_cast<Location*>(location)->entrance = path;
  return nullptr;
}

// NOLINTNEXTLINE(cert-err58-cpp,modernize-avoid-c-arrays): as Apache's macros want it
const command_rec kDirectives[] = {
    AP_INIT_FLAG("TesselShares", asCommand(setShares), nullptr, ACCESS_CONF,
                 "on: serve the WebDAV shares of this host below this location"),
    AP_INIT_TAKE1("TesselEntrance", asCommand(setEntrance), nullptr, ACCESS_CONF,
                  "the location with \"TesselShares on\" to which / leads"),
    AP_INIT_TAKE3("TesselIdentity", asCommand(checkIdentity), nullptr, RSRC_CONF | EXEC_ON_READ,
                  "certificate, key and the program that prints the key's pass phrase"),
    {}};

}  // namespace

}  // namespace tessel

extern "C" {
module AP_MODULE_DECLARE_DATA tessel_module = {STANDARD20_MODULE_STUFF,
                                               tessel::createLocation,
                                               tessel::mergeLocations,
                                               tessel::createServer,
                                               nullptr,
                                               tessel::kDirectives,
                                               tessel::registerHooks,
                                               0};
}
