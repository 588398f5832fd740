// Files and folders, as mod_dav asks for them (mod_dav.h, dav_hooks_repository).
#include <apr_strings.h>
#include <fcntl.h>
#include <http_request.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <vector>

#include "host/debian/mod_tessel/etag.h"
#include "host/debian/mod_tessel/files/new_file.h"
#include "host/debian/mod_tessel/files/tree.h"
#include "host/debian/mod_tessel/provider/new_locks.h"
#include "host/debian/mod_tessel/provider/read_ahead.h"
#include "host/debian/mod_tessel/provider/resource.h"
#include "host/debian/mod_tessel/provider/walk.h"

// mod_dav's name for a file that is being written.
struct dav_stream {
  dav_resource* resource;
  tessel::NewFile file;
  tessel::NewLocks newLocks;
  std::string buffered;
};

namespace tessel {

namespace {

constexpr size_t kBuffer = 1 << 16;

// What the kernel cannot tell the path of, because it is longer than PATH_MAX or has just gone, can
// have no locks, so nothing is done to it.
dav_error* checkPath(const dav_resource* resource) {
  const Place& place = resource->info->found.target;
  if (!fileOf(resource).path.empty() || (!place.exists() && !place.hasFolder())) return nullptr;
  return dav_new_error(resource->pool, HTTP_FORBIDDEN, 0, 0, "The path is too long.");
}

dav_error* getResource(request_rec* request, const char* /*root*/, const char* /*label*/,
                       int /*checkedIn*/, dav_resource** resource) {
  return guarded(request->pool, [&]() -> dav_error* {
    ShareRequest* share = shareRequestOf(request);
    if (share == nullptr || share->kind == ShareURL::Kind::List || !share->isKnown) {
      return dav_new_error(request->pool, HTTP_NOT_FOUND, 0, 0, "no share");
    }
    // Before the body of a request is read, what was found for it a moment ago is as good as new.
    // Else it is looked for anew: another resource of the request may have changed it.
    const bool isFresh = request->method_number == M_PUT && share->wasLookedFor && !share->isTaken;
    share->isTaken = true;
    auto found = isFresh ? std::move(share->found) : findBelow(share->folder, share->rest);
    if (!found) return fileError(request->pool, found.error(), "The resource cannot be reached");
    if (found->isBelowFile && request->method_number != M_MKCOL &&
        request->method_number != M_PUT) {
      return dav_new_error(request->pool, HTTP_NOT_FOUND, 0, 0, "The path goes on below a file.");
    }
    *resource = makeResource(request->pool, request, *share, share->rest, *std::move(found));
    // By which If-Unmodified-Since is judged; without it every file was modified just now.
    constexpr std::int64_t kNanoseconds = 1000;  // in a microsecond
    if ((*resource)->exists != 0) {
      ap_update_mtime(request, (*resource)->info->found.target.status.modified / kNanoseconds);
    }
    return checkPath(*resource);
  });
}

dav_error* getParent(const dav_resource* resource, dav_resource** parent) {
  return guarded(resource->pool, [&]() -> dav_error* {
    *parent = nullptr;
    const dav_resource_private& info = *resource->info;
    if (info.rest.empty()) return nullptr;
    std::string above = parentOf(info.rest);
    auto found = findBelow(info.share->folder, above);
    if (!found) return fileError(resource->pool, found.error(), "The parent cannot be reached");
    *parent = makeResource(resource->pool, info.request, *info.share, std::move(above),
                           *std::move(found));
    return checkPath(*parent);
  });
}

int isSame(const dav_resource* one, const dav_resource* other) {
  const File& first = fileOf(one);
  const File& second = fileOf(other);
  if (first.identity.exists() && second.identity.exists()) {
    return first.identity.isSameFile(second.identity) ? 1 : 0;
  }
  return first.path == second.path ? 1 : 0;
}

int isParent(const dav_resource* parent, const dav_resource* child) {
  const std::string above = pathInside(fileOf(parent).path, "");
  return fileOf(child).path.starts_with(above) ? 1 : 0;
}

apr_status_t discardStream(void* stream) {
  delete static_cast<dav_stream*>(stream);
  return APR_SUCCESS;
}

dav_error* openStream(const dav_resource* constant, dav_stream_mode mode, dav_stream** stream) {
  return guarded(constant->pool, [&]() -> dav_error* {
    // mod_dav's own object, which is told of what becomes of the file.
    auto* resource = const_cast<dav_resource*>(constant);  // NOLINT
    const Place& place = resource->info->found.target;
    if (!place.hasFolder()) {
      return dav_new_error(resource->pool, HTTP_CONFLICT, 0, 0,
                           "The folder for the file does not exist.");
    }
    auto file = NewFile::create(place.folder, 0666);
    if (!file) return fileError(resource->pool, file.error(), "The file cannot be made");
    if (mode == DAV_MODE_WRITE_SEEKABLE && place.exists()) {
      const auto old = reopen(place.item, O_RDONLY | O_NONBLOCK);
      if (!old) return fileError(resource->pool, old.error(), "The file cannot be read");
      if (Status copied = file->copyFrom(*old); !copied) {
        return fileError(resource->pool, copied.error(), "The file cannot be copied");
      }
      if (Status back = file->seek(0); !back) {
        return fileError(resource->pool, back.error(), "The file cannot be written");
      }
    }
    auto newLocks = NewLocks::since(resource);
    if (!newLocks) return stateError(resource->info->request, newLocks.error());
    *stream = new dav_stream{resource, *std::move(file), *std::move(newLocks), {}};
    apr_pool_cleanup_register(resource->pool, *stream, discardStream, apr_pool_cleanup_null);
    readAhead(resource->info->request);
    return nullptr;
  });
}

dav_error* writeError(const dav_stream* stream, const Status& written) {
  if (written) return nullptr;
  return fileError(stream->resource->pool, written.error(), "The file cannot be written");
}

Status flush(dav_stream* stream) {
  Status written = stream->file.write(stream->buffered);
  stream->buffered.clear();
  return written;
}

dav_error* writeStream(dav_stream* stream, const void* bytes, apr_size_t size) {
  return guarded(stream->resource->pool, [&]() -> dav_error* {
    if (stream->buffered.size() + size > kBuffer) {
      if (Status flushed = flush(stream); !flushed) return writeError(stream, flushed);
    }
    const std::string_view piece(static_cast<const char*>(bytes), size);
    if (size >= kBuffer) return writeError(stream, stream->file.write(piece));
    stream->buffered += piece;
    return nullptr;
  });
}

dav_error* seekStream(dav_stream* stream, apr_off_t position) {
  return guarded(stream->resource->pool, [&]() -> dav_error* {
    if (Status flushed = flush(stream); !flushed) return writeError(stream, flushed);
    return writeError(stream, stream->file.seek(position));
  });
}

// The header by which clients that synchronise give the file its time: seconds since 1970.
Status setTime(request_rec* request, NewFile& file) {
  const char* header = apr_table_get(request->headers_in, "X-OC-Mtime");
  if (header == nullptr) return {};
  const std::string_view text = header;
  std::int64_t seconds = 0;
  const char* end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, seconds);
  // Some send a fraction, which no file system needs.
  if (read.ec != std::errc() || (read.ptr != end && *read.ptr != '.')) return {};
  if (Status set = file.setModified(seconds); !set) return set;
  apr_table_setn(request->headers_out, "X-OC-Mtime", "accepted");
  return {};
}

// Whether the request counts only for what stood there when it came, or for nothing at all.
bool isConditional(const request_rec* request) {
  constexpr std::array<const char*, 3> kConditions{"If-Match", "If-None-Match",
                                                   "If-Unmodified-Since"};
  return std::any_of(kConditions.begin(), kConditions.end(), [request](const char* condition) {
    return apr_table_get(request->headers_in, condition) != nullptr;
  });
}

// Whether that still stands there, after an upload that may have taken long.
bool isUnchanged(const Place& place) {
  const auto now = statusIn(place.folder.get(), place.name.c_str());
  if (!place.exists()) return !now && now.error().code == ENOENT;
  return now && now->identity.isSameFile(place.status.identity) && now->size == place.status.size &&
         now->modified == place.status.modified;
}

dav_error* hasChanged(const dav_resource* resource) {
  return dav_new_error(resource->pool, HTTP_PRECONDITION_FAILED, 0, 0,
                       "The file has changed during the upload.");
}

dav_error* publish(dav_stream* stream) {
  dav_resource* resource = stream->resource;
  request_rec* request = resource->info->request;
  const Place& place = resource->info->found.target;
  NewFile& file = stream->file;
  if (Status flushed = flush(stream); !flushed) return writeError(stream, flushed);
  if (place.exists()) {
    if (Status kept = file.takeAttributesOf(place.item, place.status); !kept) {
      return writeError(stream, kept);
    }
  }
  if (Status set = setTime(request, file); !set) return writeError(stream, set);
  const auto made = statusOf(file.descriptor().get());
  if (!made) return writeError(stream, made.error());
  const bool isBound = isConditional(request);
  if (isBound && !isUnchanged(place)) return hasChanged(resource);
  if (Status unlocked = stream->newLocks.check(); !unlocked) {
    return stateError(request, unlocked.error());
  }
  State& state = stateOf(resource);
  File known = fileOf(resource);
  const auto isKnown = state.willReplace(known, made->identity);
  if (!isKnown) return stateError(request, isKnown.error());
  Status published = file.publish(place.name, place.exists());
  // Somebody else was faster; the last one wins, as it would have a moment later.
  if (!published && published.error().code == EEXIST && isBound) return hasChanged(resource);
  if (!published && published.error().code == EEXIST) published = file.publish(place.name, true);
  if (!published) return writeError(stream, published);
  known.identity = made->identity;
  if (*isKnown) (void)state.settle(known);
  Place& now = resource->info->found.target;
  now.status = *made;
  now.item = file.release();
  resource->info->file = std::move(known);
  return nullptr;
}

dav_error* closeStream(dav_stream* stream, int commit) {
  dav_resource* resource = stream->resource;
  dav_error* error = nullptr;
  if (commit != 0) error = guarded(resource->pool, [&] { return publish(stream); });
  apr_pool_cleanup_run(resource->pool, stream, discardStream);
  return error;
}

dav_error* createCollection(dav_resource* resource) {
  return guarded(resource->pool, [&]() -> dav_error* {
    const Place& place = resource->info->found.target;
    if (!place.hasFolder()) {
      return dav_new_error(resource->pool, HTTP_CONFLICT, 0, 0, "The folder above does not exist.");
    }
    if (::mkdirat(place.folder.get(), place.name.c_str(), 0777) != 0) {
      const int number = errno;
      if (number == EEXIST) {
        return dav_new_error(resource->pool, HTTP_METHOD_NOT_ALLOWED, 0, 0,
                             "Something of that name has just been made.");
      }
      return fileError(resource->pool, systemError("cannot be made", number), "The folder");
    }
    refresh(resource);
    (void)stateOf(resource).settle(fileOf(resource));
    return nullptr;
  });
}

// A destination that mod_dav wants to have removed before it copies or moves to it is replaced in
// one step instead, so that nothing is lost when the new one fails.
bool isDestination(const request_rec* request) {
  return request->main != nullptr &&
         (request->method_number == M_COPY || request->method_number == M_MOVE);
}

dav_error* removeResource(dav_resource* resource, dav_response** /*response*/) {
  return guarded(resource->pool, [&]() -> dav_error* {
    dav_resource_private& info = *resource->info;
    if (isDestination(info.request)) {
      info.isToBeReplaced = true;
      return nullptr;
    }
    const std::string path = fileOf(resource).path;
    if (Status removed = removeItem(placeOf(info)); !removed) {
      return fileError(resource->pool, removed.error(), "The resource cannot be removed");
    }
    // A link takes nothing along of what it leads to.
    if (!info.found.link.exists()) (void)stateOf(resource).forgetTree(path);
    resource->exists = 0;
    resource->collection = 0;
    return nullptr;
  });
}

// Where a copy or move goes to: what the path leads to, or, when that is moved away, what stands
// there itself.
dav_error* checkDestination(const dav_resource* destination) {
  if (destination->info->found.target.hasFolder()) return nullptr;
  return dav_new_error(destination->pool, HTTP_CONFLICT, 0, 0,
                       "The folder of the destination does not exist.");
}

dav_error* copyResource(const dav_resource* source, dav_resource* destination, int depth,
                        dav_response** /*response*/) {
  return guarded(source->pool, [&]() -> dav_error* {
    if (dav_error* error = checkDestination(destination); error != nullptr) return error;
    const auto newLocks = NewLocks::since(destination);
    if (!newLocks) return stateError(source->info->request, newLocks.error());
    State& state = stateOf(source);
    const File from = fileOf(source);
    const File to = fileOf(destination);
    Status stateFailure;
    TreeEvents events;
    events.copied = [&](const std::string& below, const FileIdentity& old,
                        const FileIdentity& made) -> Status {
      stateFailure =
          state.willCopy(File{from.path + below, old, {}}, File{to.path + below, made, {}});
      return stateFailure;
    };
    events.willShow = [&] { return stateFailure = newLocks->check(); };
    Status copied =
        copyItem(source->info->found.target, destination->info->found.target, depth != 0, events);
    if (!copied) {
      if (!stateFailure) return stateError(source->info->request, stateFailure.error());
      return fileError(source->pool, copied.error(), "The resource cannot be copied");
    }
    refresh(destination);
    (void)state.settle(fileOf(destination));
    return nullptr;
  });
}

dav_error* moveResource(dav_resource* source, dav_resource* destination,
                        dav_response** /*response*/) {
  return guarded(source->pool, [&]() -> dav_error* {
    if (dav_error* error = checkDestination(destination); error != nullptr) return error;
    const dav_resource_private& info = *source->info;
    const auto newLocks = NewLocks::since(destination);
    const auto newLocksOfSource = NewLocks::since(source);
    for (const auto* locks : {&newLocks, &newLocksOfSource}) {
      if (!*locks) return stateError(info.request, locks->error());
    }
    State& state = stateOf(source);
    const File from = fileOf(source);
    const File to = fileOf(destination);
    const bool isLink = info.found.link.exists();
    Status stateFailure;
    TreeEvents events;
    if (!isLink) {
      events.willRename = [&] { return stateFailure = state.willMove(from.path, to.path); };
      events.didNotRename = [&] { (void)state.didNotMove(from.path, to.path); };
      events.copied = [&](const std::string& below, const FileIdentity& old,
                          const FileIdentity& made) -> Status {
        stateFailure =
            state.willCopy(File{from.path + below, old, {}}, File{to.path + below, made, {}});
        return stateFailure;
      };
    }
    events.willShow = [&] {
      stateFailure = newLocks->check();
      if (stateFailure) stateFailure = newLocksOfSource->check();
      return stateFailure;
    };
    Status moved = moveItem(placeOf(info), destination->info->found.target, events);
    if (!moved) {
      if (!stateFailure) return stateError(info.request, stateFailure.error());
      return fileError(source->pool, moved.error(), "The resource cannot be moved");
    }
    source->exists = 0;
    source->collection = 0;
    refresh(destination);
    (void)state.settle(fileOf(destination));
    if (!isLink) (void)state.forgetTree(from.path);
    return nullptr;
  });
}

const char* getETag(const dav_resource* resource) {
  if (resource->exists == 0) return apr_pstrdup(resource->pool, "");
  return apr_pstrdup(resource->pool, etagOf(resource->info->found.target.status).c_str());
}

request_rec* getRequest(const dav_resource* resource) { return resource->info->request; }

const char* getPath(const dav_resource* resource) {
  return apr_pstrdup(resource->pool, fileOf(resource).path.c_str());
}

}  // namespace

const dav_hooks_repository kRepositoryHooks = {
    0,  // GET is answered without mod_dav
    getResource,
    getParent,
    isSame,
    isParent,
    openStream,
    closeStream,
    writeStream,
    seekStream,
    nullptr,
    nullptr,
    createCollection,
    copyResource,
    moveResource,
    removeResource,
    walkResources,
    getETag,
    nullptr,
    getRequest,
    getPath,
};

}  // namespace tessel
