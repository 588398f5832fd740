#include "platform/process/console.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace tessel {

namespace {

void writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written >= 0) {
      text.remove_prefix(static_cast<size_t>(written));
    } else if (errno == EAGAIN) {
      pollfd ready{descriptor, POLLOUT, 0};
      (void)::poll(&ready, 1, -1);
    } else if (errno != EINTR) {
      return;
    }
  }
}

}  // namespace

void print(std::string_view text) { writeAll(STDOUT_FILENO, text); }

void printLine(std::string_view text) { print(std::string(text) + "\n"); }

void printErrorLine(std::string_view text) { writeAll(STDERR_FILENO, std::string(text) + "\n"); }

void reportError(std::string_view message) {
  printErrorLine("\033[31mError: " + std::string(message) + "\033[0m");
}

}  // namespace tessel
