#include "platform/process/process.h"

#include <fcntl.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <memory>

namespace tessel {

bool prepareProcess() {
  (void)std::signal(SIGPIPE, SIG_IGN);
  (void)std::signal(SIGXFSZ, SIG_IGN);
  (void)std::signal(SIGCHLD, SIG_DFL);
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
    if (::fcntl(stream, F_GETFD) >= 0) continue;
    // The lowest free descriptor is this one, since those below it are open.
    if (::open("/dev/null", stream == STDIN_FILENO ? O_RDONLY : O_WRONLY) != stream) return false;
  }
  return true;
}

bool processExists(pid_t process) { return ::kill(process, 0) == 0; }

uid_t effectiveUserID() { return ::geteuid(); }

std::optional<std::string> executablePath() {
  // The path that execve(2) was given; unlike /proc/self/exe it needs no /proc. The working
  // directory has not changed since.
  const unsigned long address = ::getauxval(AT_EXECFN);
  if (address == 0) return std::nullopt;
  // getauxval(3) hands pointers over as numbers.
  const char* started =
      reinterpret_cast<const char*>(address);  // NOLINT(performance-no-int-to-ptr)
  const std::unique_ptr<char, void (*)(void*)> resolved(::realpath(started, nullptr), std::free);
  if (!resolved) return std::nullopt;
  return std::string(resolved.get());
}

std::optional<std::string> localeCountryCode() {
  std::string locale;
  for (const char* variable : {"LC_ALL", "LANG"}) {
    const char* value = std::getenv(variable);
    if (value != nullptr && *value != '\0') {
      locale = value;
      break;
    }
  }
  const std::string name = locale.substr(0, locale.find_first_of(".@"));
  const size_t underscore = name.find('_');
  if (underscore == std::string::npos) return std::nullopt;
  const std::string territory = name.substr(underscore + 1);
  const auto isUpperCase = [](char c) { return c >= 'A' && c <= 'Z'; };
  if (territory.size() != 2 || !isUpperCase(territory[0]) || !isUpperCase(territory[1])) {
    return std::nullopt;
  }
  return territory;
}

}  // namespace tessel
