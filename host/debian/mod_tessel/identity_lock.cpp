#include "host/debian/mod_tessel/identity_lock.h"

#include <httpd.h>
// httpd.h comes first: the others need its types.
#include <apr_time.h>
#include <fcntl.h>
#include <http_config.h>
#include <sys/file.h>

#include <new>

#include "platform/files/file_descriptor.h"

namespace tessel {

namespace {

constexpr const char* kFolder = "/Library/Keychains";

apr_status_t unlock(void* descriptor) {
  delete static_cast<FileDescriptor*>(descriptor);
  return APR_SUCCESS;
}

int lockWhileConfiguring(apr_pool_t* /*configuration*/, apr_pool_t* /*log*/,
                         apr_pool_t* temporary) {
  return holdIdentity(temporary) ? OK : HTTP_INTERNAL_SERVER_ERROR;
}

}  // namespace

// Shared, so that Apaches do not wait for each other; an export that hangs is not waited for.
bool holdIdentity(apr_pool_t* pool) {
  constexpr apr_interval_time_t kPause = 5000;  // microseconds
  constexpr int kTries = 2000;
  auto* folder =
      new (std::nothrow) FileDescriptor(::open(kFolder, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folder == nullptr) return false;
  apr_pool_cleanup_register(pool, folder, unlock, apr_pool_cleanup_null);
  for (int i = 0; i < kTries && *folder && ::flock(folder->get(), LOCK_SH | LOCK_NB) != 0; ++i) {
    apr_sleep(kPause);
  }
  return true;
}

void registerIdentityLock(apr_pool_t* /*pool*/) {
  ap_hook_pre_config(lockWhileConfiguring, nullptr, nullptr, APR_HOOK_REALLY_FIRST);
}

}  // namespace tessel
