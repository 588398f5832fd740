// What mod_dav calls a resource, over a file of a share.
#pragma once

#include "host/debian/mod_tessel/dav.h"
// mod_dav's header comes first: it needs Apache's.
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/debian/mod_tessel/files/place.h"
#include "host/debian/mod_tessel/share_request.h"
#include "host/debian/mod_tessel/state/state.h"
#include "platform/base/result.h"

// mod_dav's name for what a repository keeps for a resource.
struct dav_resource_private {
  request_rec* request;               // by which it was asked for
  const tessel::ShareRequest* share;  // of the same request
  std::string rest;                   // of the path, below the share
  tessel::Found found;
  bool isToBeReplaced = false;            // by COPY or MOVE, which do that in one step
  std::optional<tessel::File> file = {};  // as state knows it, once it was asked for
};

namespace tessel {

extern const dav_hooks_repository kRepositoryHooks;
extern const dav_hooks_propdb kDeadPropertyHooks;
extern const dav_hooks_locks kLockHooks;

// A resource of the pool, which also destroys it.
dav_resource* makeResource(apr_pool_t* pool, request_rec* request, const ShareRequest& share,
                           std::string rest, Found found);

// What stands for the resource: the link, if its path is one, or what the path leads to.
const Place& placeOf(const dav_resource_private& info);

// The file as state knows it. What has no folder to be in has no path, and so no state.
const File& fileOf(const dav_resource* resource);
// Looks again at what stands there, after it has changed.
void refresh(dav_resource* resource);

State& stateOf(const dav_resource* resource);

// Without ".." or slashes at its end, in the form that mod_dav wants.
std::string parentOf(std::string_view rest);

// The error that says this in the protocol's words, null for success.
dav_error* fileError(apr_pool_t* pool, const Error& error, const char* what);
dav_error* stateError(request_rec* request, const Error& error);

// Runs what mod_dav calls, which is C: no exception may cross it.
template <typename Function>
dav_error* guarded(apr_pool_t* pool, Function function) {
  try {
    return function();
  } catch (...) {
    return dav_new_error(pool, HTTP_INTERNAL_SERVER_ERROR, 0, 0, "out of memory");
  }
}

}  // namespace tessel
