// Locks, as mod_dav asks for them (mod_dav.h, dav_hooks_locks). State knows which locks cover what,
// so that those which mod_dav would note on each file below a folder need no note.
#include <apr_strings.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "host/debian/mod_tessel/element_text.h"
#include "host/debian/mod_tessel/provider/resource.h"
#include "platform/xml/element_check.h"

// mod_dav's names for a token, and for what a lock and the locks of a request keep to themselves.
struct dav_locktoken {
  const char* uuid;
};
struct dav_lock_private {
  dav_lock lock;
  dav_locktoken token;
};
struct dav_lockdb_private {
  dav_lockdb database;
  request_rec* request;
};

namespace tessel {

namespace {

constexpr std::string_view kScheme = "urn:uuid:";
// As earlier versions, and other servers, spell it.
constexpr std::string_view kOldScheme = "opaquelocktoken:";

const char* supportedLock(const dav_resource* /*resource*/) {
  return "<D:lockentry>\n<D:lockscope><D:exclusive/></D:lockscope>\n"
         "<D:locktype><D:write/></D:locktype>\n</D:lockentry>\n"
         "<D:lockentry>\n<D:lockscope><D:shared/></D:lockscope>\n"
         "<D:locktype><D:write/></D:locktype>\n</D:lockentry>\n";
}

dav_error* parseToken(apr_pool_t* pool, const char* text, dav_locktoken** token) {
  constexpr size_t kDigits = 36;
  std::string_view uuid = text;
  if (uuid.starts_with(kScheme)) {
    uuid.remove_prefix(kScheme.size());
  } else if (uuid.starts_with(kOldScheme)) {
    uuid.remove_prefix(kOldScheme.size());
  }
  if (uuid.data() == text || uuid.size() != kDigits) {
    return dav_new_error(pool, HTTP_BAD_REQUEST, DAV_ERR_LOCK_UNK_STATE_TOKEN, 0,
                         "The lock token is none of this server's.");
  }
  *token = static_cast<dav_locktoken*>(apr_palloc(pool, sizeof(dav_locktoken)));
  char* lower = apr_pstrmemdup(pool, uuid.data(), uuid.size());
  for (char* c = lower; *c != '\0'; ++c) {
    if (*c >= 'A' && *c <= 'Z') *c = static_cast<char>(*c - 'A' + 'a');
  }
  (*token)->uuid = lower;
  return nullptr;
}

const char* formatToken(apr_pool_t* pool, const dav_locktoken* token) {
  return apr_pstrcat(pool, kScheme.data(), token->uuid, nullptr);
}

int compareTokens(const dav_locktoken* one, const dav_locktoken* other) {
  return std::strcmp(one->uuid, other->uuid);
}

dav_error* openDatabase(request_rec* request, int readOnly, int /*force*/, dav_lockdb** database) {
  auto* made =
      static_cast<dav_lockdb_private*>(apr_pcalloc(request->pool, sizeof(dav_lockdb_private)));
  made->database.hooks = &kLockHooks;
  made->database.ro = readOnly;
  made->database.info = made;
  made->request = request;
  *database = &made->database;
  return nullptr;
}

void closeDatabase(dav_lockdb* /*database*/) {}

apr_pool_t* poolOf(const dav_lockdb* database) { return database->info->request->pool; }

// Without the owner, which mod_dav tells only in the answer to a LOCK.
dav_lock* makeLock(apr_pool_t* pool, const Lock& lock, const File& file) {
  auto* made = static_cast<dav_lock_private*>(apr_pcalloc(pool, sizeof(dav_lock_private)));
  made->token.uuid = apr_pstrdup(pool, lock.token.c_str());
  dav_lock& result = made->lock;
  const bool isDirect = lock.path == file.path;
  result.rectype = isDirect ? DAV_LOCKREC_DIRECT : DAV_LOCKREC_INDIRECT;
  result.is_locknull = isDirect && lock.isOnName ? 1 : 0;
  result.scope = lock.isExclusive ? DAV_LOCKSCOPE_EXCLUSIVE : DAV_LOCKSCOPE_SHARED;
  result.type = DAV_LOCKTYPE_WRITE;
  result.depth = lock.isInfinite ? DAV_INFINITY : 0;
  result.timeout = lock.expires;
  result.locktoken = &made->token;
  result.auth_user = apr_pstrdup(pool, lock.user.c_str());
  result.info = made;
  return &result;
}

dav_error* removeNameState(dav_lockdb* database, const dav_resource* resource) {
  return guarded(poolOf(database), [&]() -> dav_error* {
    if (Status bound = stateOf(resource).bindName(fileOf(resource)); !bound) {
      return stateError(database->info->request, bound.error());
    }
    return nullptr;
  });
}

dav_error* createLock(dav_lockdb* database, const dav_resource* /*resource*/, dav_lock** lock) {
  return guarded(poolOf(database), [&]() -> dav_error* {
    auto token = newLockToken();
    if (!token) {
      return dav_new_error(poolOf(database), HTTP_INTERNAL_SERVER_ERROR, 0, 0,
                           "The system has no random numbers.");
    }
    Lock made;
    made.token = *std::move(token);
    *lock = makeLock(poolOf(database), made, File{});
    (*lock)->rectype = DAV_LOCKREC_DIRECT;
    // mod_dav fills these in, and takes what is filled in for a contradiction.
    (*lock)->scope = DAV_LOCKSCOPE_UNKNOWN;
    (*lock)->type = DAV_LOCKTYPE_UNKNOWN;
    return nullptr;
  });
}

dav_error* getLocks(dav_lockdb* database, const dav_resource* resource, int /*kind*/,
                    dav_lock** locks) {
  *locks = nullptr;
  return guarded(poolOf(database), [&]() -> dav_error* {
    const File& file = fileOf(resource);
    if (file.path.empty()) return nullptr;
    const auto found = stateOf(resource).locks(file);
    if (!found) return stateError(database->info->request, found.error());
    for (const Lock& lock : *found) {
      // In the resource's memory: a walk asks for each of thousands.
      dav_lock* made = makeLock(resource->pool, lock, file);
      made->next = *locks;
      *locks = made;
    }
    return nullptr;
  });
}

dav_error* findLock(dav_lockdb* database, const dav_resource* resource, const dav_locktoken* token,
                    int /*partial*/, dav_lock** lock) {
  dav_error* error = getLocks(database, resource, DAV_GETLOCKS_COMPLETE, lock);
  while (*lock != nullptr && compareTokens((*lock)->locktoken, token) != 0) *lock = (*lock)->next;
  return error;
}

dav_error* hasLocks(dav_lockdb* database, const dav_resource* resource, int* present) {
  dav_lock* lock = nullptr;
  dav_error* error = getLocks(database, resource, DAV_GETLOCKS_COMPLETE, &lock);
  // mod_dav asks whether a name on which nothing stands is locked itself.
  while (lock != nullptr && lock->rectype != DAV_LOCKREC_DIRECT) lock = lock->next;
  *present = lock != nullptr ? 1 : 0;
  return error;
}

dav_error* refuseLength(dav_lockdb* database) {
  return dav_new_error(poolOf(database), HTTP_REQUEST_ENTITY_TOO_LARGE, 0, 0,
                       "The owner of the lock is described at too great length.");
}

dav_error* appendLocks(dav_lockdb* database, const dav_resource* resource, int indirect,
                       const dav_lock* lock) {
  if (indirect != 0) return nullptr;
  return guarded(poolOf(database), [&]() -> dav_error* {
    for (; lock != nullptr; lock = lock->next) {
      Lock wanted;
      wanted.token = lock->locktoken->uuid;
      wanted.isExclusive = lock->scope == DAV_LOCKSCOPE_EXCLUSIVE;
      wanted.isInfinite = lock->depth != 0;
      if (lock->auth_user != nullptr) wanted.user = lock->auth_user;
      if (lock->owner != nullptr) {
        const size_t size = std::strlen(lock->owner);
        if (size > kMostOwnerBytes) return refuseLength(database);
        auto owner = elementText({lock->owner, size}, poolOf(database));
        if (!owner) {
          return dav_new_error(poolOf(database), HTTP_BAD_REQUEST, 0, 0,
                               "The owner of the lock is ill-formed.");
        }
        if (owner->size() > kMostOwnerBytes) return refuseLength(database);
        wanted.owner = *std::move(owner);
      }
      const std::time_t seconds =
          lock->timeout == DAV_TIMEOUT_INFINITE
              ? 0
              : std::max<std::time_t>(lock->timeout - std::time(nullptr), 1);
      const auto set = stateOf(resource).addLock(fileOf(resource), wanted, seconds);
      if (!set) return stateError(database->info->request, set.error());
      // The client is told how long it holds, and its owner as everybody is. mod_dav passes on what
      // it has made itself.
      auto* answered = const_cast<dav_lock*>(lock);  // NOLINT
      answered->timeout = set->expires;
      if (!set->owner.empty()) answered->owner = apr_pstrdup(poolOf(database), set->owner.c_str());
    }
    return nullptr;
  });
}

dav_error* removeLock(dav_lockdb* database, const dav_resource* resource,
                      const dav_locktoken* token) {
  // All locks go with the file, once that is gone.
  if (token == nullptr) return nullptr;
  return guarded(poolOf(database), [&]() -> dav_error* {
    if (Status removed = stateOf(resource).removeLock(token->uuid); !removed) {
      return stateError(database->info->request, removed.error());
    }
    return nullptr;
  });
}

dav_error* refreshLocks(dav_lockdb* database, const dav_resource* resource,
                        const dav_locktoken_list* tokens, time_t time, dav_lock** locks) {
  *locks = nullptr;
  return guarded(poolOf(database), [&]() -> dav_error* {
    const std::time_t seconds =
        time == DAV_TIMEOUT_INFINITE ? 0 : std::max<std::time_t>(time - std::time(nullptr), 1);
    const File& file = fileOf(resource);
    for (; tokens != nullptr; tokens = tokens->next) {
      const auto lock = stateOf(resource).refreshLock(file, tokens->locktoken->uuid, seconds);
      if (!lock && kindOf(lock.error()) == StateError::NoSuchLock) continue;
      if (!lock) return stateError(database->info->request, lock.error());
      dav_lock* made = makeLock(poolOf(database), *lock, file);
      // Older versions have kept what does not stand for itself.
      if (ElementCheck().isForAll(lock->owner)) {
        made->owner = apr_pstrdup(poolOf(database), lock->owner.c_str());
      }
      made->next = *locks;
      *locks = made;
    }
    if (*locks != nullptr) return nullptr;
    return dav_new_error(poolOf(database), HTTP_PRECONDITION_FAILED, 0, 0,
                         "None of the locks holds for the resource.");
  });
}

// mod_dav would look for where a lock was set by going up folder by folder.
dav_error* lookUp(dav_lockdb* database, const dav_locktoken* token, const dav_resource* start,
                  const dav_resource** resource) {
  dav_lock* lock = nullptr;
  if (dav_error* error = findLock(database, start, token, 0, &lock); error != nullptr) return error;
  if (lock == nullptr) {
    return dav_new_error(poolOf(database), HTTP_CONFLICT, 0, 0,
                         "The lock does not hold for the resource.");
  }
  *resource = start;
  return nullptr;
}

}  // namespace

const dav_hooks_locks kLockHooks = {
    supportedLock,   parseToken,   formatToken, compareTokens, openDatabase, closeDatabase,
    removeNameState, createLock,   getLocks,    findLock,      hasLocks,     appendLocks,
    removeLock,      refreshLocks, lookUp,      nullptr,
};

}  // namespace tessel
