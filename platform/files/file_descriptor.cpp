#include "platform/files/file_descriptor.h"

#include <poll.h>

#include <cerrno>

#include "platform/base/system_error.h"

namespace tessel {

Status writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
    if (written >= 0) {
      bytes.remove_prefix(static_cast<size_t>(written));
    } else if (errno == EAGAIN) {
      pollfd ready{descriptor, POLLOUT, 0};
      (void)::poll(&ready, 1, -1);
    } else if (errno != EINTR) {
      return systemError("cannot write");
    }
  }
  return {};
}

}  // namespace tessel
