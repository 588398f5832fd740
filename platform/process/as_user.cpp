#include "platform/process/as_user.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <new>

#include "platform/base/system_error.h"
#include "platform/files/file_descriptor.h"

namespace tessel {

namespace {

constexpr char kWhole = '.';  // the last byte of an answer that is complete

// A process's root folder, as the system shows it, is the one in its own mounts.
void enterRoot(pid_t process) {
  const std::string root = "/proc/" + std::to_string(process) + "/root";
  if (::chroot(root.c_str()) != 0 || ::chdir("/") != 0) return;
}

[[noreturn]] void answer(int pipe, const passwd& account, std::optional<pid_t> rootOf,
                         const std::function<std::string()>& function) {
  if (rootOf) enterRoot(*rootOf);
  if (::initgroups(account.pw_name, account.pw_gid) != 0 ||
      ::setresgid(account.pw_gid, account.pw_gid, account.pw_gid) != 0 ||
      ::setresuid(account.pw_uid, account.pw_uid, account.pw_uid) != 0) {
    ::_exit(EXIT_FAILURE);
  }
  try {
    ::_exit(writeAll(pipe, function() + kWhole) ? EXIT_SUCCESS : EXIT_FAILURE);
  } catch (const std::bad_alloc&) {
    ::_exit(EXIT_FAILURE);
  }
}

}  // namespace

Result<std::string> runAsUser(const std::string& user, std::optional<pid_t> rootOf,
                              const std::function<std::string()>& function) {
  const passwd* account = ::getpwnam(user.c_str());
  if (account == nullptr) return Error{"there is no user " + user};
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return systemError("cannot make a pipe");
  const FileDescriptor reading(ends[0]);
  FileDescriptor writing(ends[1]);
  const pid_t child = ::fork();
  if (child < 0) return systemError("cannot make a process");
  if (child == 0) answer(writing.get(), *account, rootOf, function);
  writing.reset();

  std::string text;
  std::array<char, 4096> buffer{};
  for (;;) {
    const ssize_t got = ::read(reading.get(), buffer.data(), buffer.size());
    if (got > 0) {
      text.append(buffer.data(), static_cast<size_t>(got));
    } else if (got == 0 || errno != EINTR) {
      break;
    }
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (status != 0 || text.empty() || text.back() != kWhole) {
    return Error{"nothing can be done as the user " + user};
  }
  text.pop_back();
  return text;
}

}  // namespace tessel
