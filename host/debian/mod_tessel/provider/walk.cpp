#include "host/debian/mod_tessel/provider/walk.h"

#include <apr_pools.h>
#include <fcntl.h>

#include <cerrno>
#include <string>
#include <utility>

#include "host/debian/mod_tessel/files/folder_reader.h"
#include "host/debian/mod_tessel/provider/resource.h"

namespace tessel {

namespace {

// As deep as trees are copied and removed.
constexpr int kDeepest = 400;

class Pool {
 public:
  explicit Pool(apr_pool_t* parent) { (void)apr_pool_create(&pool_, parent); }
  Pool(const Pool&) = delete;
  Pool& operator=(const Pool&) = delete;
  Pool(Pool&&) = delete;
  Pool& operator=(Pool&&) = delete;
  ~Pool() { apr_pool_destroy(pool_); }
  apr_pool_t* get() const { return pool_; }

 private:
  apr_pool_t* pool_ = nullptr;
};

class Walker {
 public:
  explicit Walker(const dav_walk_params& parameters)
      : parameters_(parameters), root_(*parameters.root->info) {
    result_.walk_ctx = parameters.walk_ctx;
    result_.pool = parameters.pool;
  }

  dav_error* visit(const dav_resource* resource, int type) {
    result_.resource = resource;
    return parameters_.func(&result_, type);
  }

  dav_error* visitFolder(const dav_resource* resource, int depth, int level) {
    if (dav_error* error = visit(resource, DAV_CALLTYPE_COLLECTION); error != nullptr) return error;
    if (depth == 0) return nullptr;
    if (level > kDeepest) return refuse(Error{"Folders are nested too deep", ENAMETOOLONG});
    auto reader = FolderReader::open(resource->info->found.target.item);
    if (!reader) return refuse(reader.error());
    for (;;) {
      const auto entry = reader->next();
      if (!entry) return refuse(entry.error());
      if (!*entry) break;
      if (isPrivateName((*entry)->name)) continue;
      if (dav_error* error = visitEntry(resource, (*entry)->name, depth, level); error != nullptr) {
        return error;
      }
    }
    return (parameters_.walk_type & DAV_WALKTYPE_LOCKNULL) != 0 ? visitLockedNames(resource)
                                                                : nullptr;
  }

  dav_response* response() const { return result_.response; }

 private:
  dav_error* visitEntry(const dav_resource* folder, const std::string& name, int depth, int level) {
    const Pool pool(parameters_.pool);
    Found found;
    Place& place = found.target;
    const FileDescriptor& above = folder->info->found.target.item;
    place.item =
        FileDescriptor(::openat(above.get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!place.item && errno == ENOENT) return nullptr;  // it has just gone
    if (!place.item) return refuse(systemError(name, errno));
    const auto status = statusOf(place.item.get());
    if (!status) return refuse(status.error());
    if (!status->isFile() && !status->isFolder()) return nullptr;
    place.status = *status;
    place.name = name;
    auto parent = duplicate(above);
    if (!parent) return refuse(parent.error());
    place.folder = *std::move(parent);
    found.wasLed = folder->info->found.wasLed;
    const dav_resource* entry = makeResource(pool.get(), root_.request, *root_.share,
                                             folder->info->rest + "/" + name, std::move(found));
    if (entry->collection == 0) return visit(entry, DAV_CALLTYPE_MEMBER);
    return visitFolder(entry, depth == DAV_INFINITY ? depth : depth - 1, level + 1);
  }

  // Names on which there is a lock and nothing else.
  dav_error* visitLockedNames(const dav_resource* folder) {
    const std::string path = fileOf(folder).path;
    const auto locks = stateOf(folder).locksIn(path);
    if (!locks) return stateError(root_.request, locks.error());
    for (const Lock& lock : *locks) {
      if (!lock.isOnName) continue;
      const Pool pool(parameters_.pool);
      Found found;
      found.target.name = lock.path.substr(lock.path.rfind('/') + 1);
      auto parent = duplicate(folder->info->found.target.item);
      if (!parent) return refuse(parent.error());
      found.target.folder = *std::move(parent);
      std::string rest = folder->info->rest + "/" + found.target.name;
      const dav_resource* entry =
          makeResource(pool.get(), root_.request, *root_.share, std::move(rest), std::move(found));
      if (dav_error* error = visit(entry, DAV_CALLTYPE_LOCKNULL); error != nullptr) return error;
    }
    return nullptr;
  }

  dav_error* refuse(const Error& error) const {
    return fileError(parameters_.pool, error, "A folder cannot be walked through");
  }

  const dav_walk_params& parameters_;
  const dav_resource_private& root_;
  dav_walk_resource result_{};
};

// Whether there is nothing to do below the root. mod_dav walks to note each lock on, and to take it
// from, everything that it covers, which our locks know by themselves; and it looks for locks in
// the way where there may be none at all.
bool isRootEnough(const dav_walk_params& parameters) {
  const request_rec* request = parameters.root->info->request;
  // Its own walks are known by their context.
  if (parameters.walk_ctx != static_cast<const void*>(&parameters)) return false;
  const auto* context = static_cast<const dav_walker_ctx*>(parameters.walk_ctx);
  if (context->flags == 0) {
    return request->method_number == M_UNLOCK || request->method_number == M_DELETE ||
           request->method_number == M_MOVE || context->lock != nullptr;
  }
  if (apr_table_get(request->headers_in, "If") != nullptr) return false;
  const auto locks = stateOf(parameters.root).locksOfTree(fileOf(parameters.root));
  return locks && locks->empty();
}

}  // namespace

dav_error* walkResources(const dav_walk_params* parameters, int depth, dav_response** response) {
  *response = nullptr;
  return guarded(parameters->pool, [&]() -> dav_error* {
    Walker walker(*parameters);
    const dav_resource* root = parameters->root;
    if (depth != 0 && isRootEnough(*parameters)) depth = 0;
    dav_error* error = root->exists == 0       ? walker.visit(root, DAV_CALLTYPE_LOCKNULL)
                       : root->collection == 0 ? walker.visit(root, DAV_CALLTYPE_MEMBER)
                                               : walker.visitFolder(root, depth, 0);
    *response = walker.response();
    return error;
  });
}

}  // namespace tessel
