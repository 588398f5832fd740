#include "platform/process/as_user.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <new>

#include "platform/base/system_error.h"
#include "platform/files/file_descriptor.h"
#include "platform/process/accounts.h"

namespace tessel {

namespace {

constexpr char kWhole = '.';  // the last byte of an answer that is complete
// The user's other processes can stop the child, or bring it to say more than is good.
constexpr std::chrono::minutes kPatience{5};
constexpr size_t kLongestAnswer = 256UL * 1024 * 1024;  // bytes

// A process's root folder, as the system shows it, is the one in its own mounts.
void enterRoot(pid_t process) {
  const std::string root = "/proc/" + std::to_string(process) + "/root";
  if (::chroot(root.c_str()) != 0 || ::chdir("/") != 0) return;
}

[[noreturn]] void answer(int pipe, const Account& account, std::optional<pid_t> rootOf,
                         const std::function<std::string()>& function) {
  if (rootOf) enterRoot(*rootOf);
  // Nobody who gets hold of the child can type into root's terminal.
  (void)::setsid();
  if (::initgroups(account.name.c_str(), account.group) != 0 ||
      ::setresgid(account.group, account.group, account.group) != 0 ||
      ::setresuid(account.user, account.user, account.user) != 0) {
    ::_exit(EXIT_FAILURE);
  }
  // After the change of users, which takes this back. It ends with its parent.
  if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0) ::_exit(EXIT_FAILURE);
  try {
    ::_exit(writeAll(pipe, function() + kWhole) ? EXIT_SUCCESS : EXIT_FAILURE);
  } catch (const std::bad_alloc&) {
    ::_exit(EXIT_FAILURE);
  }
}

// All that is said at the other end of a pipe, as far as there is time and room for it.
std::string readAll(int pipe) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + kPatience;
  std::string text;
  std::array<char, 4096> buffer{};
  while (text.size() < kLongestAnswer) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    pollfd waiting{pipe, POLLIN, 0};
    const int ready = left > 0 ? ::poll(&waiting, 1, static_cast<int>(left)) : 0;
    if (ready < 0 && errno == EINTR) continue;
    const ssize_t got = ready > 0 ? ::read(pipe, buffer.data(), buffer.size()) : 0;
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    text.append(buffer.data(), static_cast<size_t>(got));
  }
  return text;
}

}  // namespace

Result<std::string> runAsUser(const std::string& user, std::optional<pid_t> rootOf,
                              const std::function<std::string()>& function) {
  const auto account = accountOf(user);
  if (!account) return account.error();
  if (!*account) return Error{"there is no user " + user};
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return systemError("cannot make a pipe");
  const FileDescriptor reading(ends[0]);
  FileDescriptor writing(ends[1]);
  const pid_t child = ::fork();
  if (child < 0) return systemError("cannot make a process");
  if (child == 0) answer(writing.get(), **account, rootOf, function);
  writing.reset();

  std::string text = readAll(reading.get());
  if (text.empty() || text.back() != kWhole) (void)::kill(child, SIGKILL);
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
