#include "host/debian/mod_tessel/state_folder.h"

#include <httpd.h>
// httpd.h comes first: the others need its types.
#include <fcntl.h>
#include <http_config.h>
#include <http_log.h>
#include <sys/stat.h>
#include <unistd.h>
#include <unixd.h>

#include <cerrno>

#include "host/debian/mod_tessel/module.h"
#include "host/debian/mod_tessel/state/state.h"
#include "platform/files/file_descriptor.h"

namespace tessel {

namespace {

// A folder that is there stays as it is. An administrator who closes it decides that.
int makeFolder(apr_pool_t* /*pool*/, apr_pool_t* /*log*/, apr_pool_t* /*temporary*/,
               server_rec* server) {
  if (::geteuid() != 0 || ::mkdir(kStateFolder, 0700) != 0) return OK;
  const FileDescriptor folder(
      ::open(kStateFolder, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder || ::fchown(folder.get(), ap_unixd_config.user_id, ap_unixd_config.group_id) != 0) {
    ap_log_error(APLOG_MARK, APLOG_ERR, errno, server, "%s cannot be given to Apache's user",
                 kStateFolder);
  }
  return OK;
}

}  // namespace

void registerStateFolder() { ap_hook_post_config(makeFolder, nullptr, nullptr, APR_HOOK_MIDDLE); }

}  // namespace tessel
