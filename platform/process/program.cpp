#include "platform/process/program.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "platform/files/file_descriptor.h"

namespace tessel {

namespace {

constexpr const char* kAdapterRoot = PLATFORM_ADAPTER_ROOT;
constexpr int kSignalStatusBase = 128;  // as in a shell's $?

struct Pipe {
  FileDescriptor readEnd;
  FileDescriptor writeEnd;
};

Result<Pipe> makePipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    return Error{std::string("cannot make a pipe: ") + std::strerror(errno)};
  }
  return Pipe{FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

std::string programFor(const std::string& launchPath) {
  const std::string adapter = kAdapterRoot + launchPath;
  struct stat status {};
  const bool usable = ::stat(adapter.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
                      ::access(adapter.c_str(), X_OK) == 0;
  return usable ? adapter : launchPath;
}

// How posix_spawn(3) is to set a child up.
class SpawnSettings {
 public:
  SpawnSettings() {
    (void)::posix_spawn_file_actions_init(&actions);
    (void)::posix_spawnattr_init(&attributes);
    sigset_t defaults;
    (void)::sigemptyset(&defaults);
    (void)::sigaddset(&defaults, SIGPIPE);
    (void)::sigaddset(&defaults, SIGXFSZ);
    (void)::posix_spawnattr_setsigdefault(&attributes, &defaults);
    (void)::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;
  SpawnSettings(SpawnSettings&&) = delete;
  SpawnSettings& operator=(SpawnSettings&&) = delete;
  ~SpawnSettings() {
    (void)::posix_spawn_file_actions_destroy(&actions);
    (void)::posix_spawnattr_destroy(&attributes);
  }

  void connect(int stream, const FileDescriptor& to) {
    (void)::posix_spawn_file_actions_adddup2(&actions, to.get(), stream);
  }
  void discard(int stream) {
    (void)::posix_spawn_file_actions_addopen(&actions, stream, "/dev/null", O_WRONLY, 0);
  }

  posix_spawn_file_actions_t actions{};
  posix_spawnattr_t attributes{};
};

Result<pid_t> spawn(const std::string& launchPath, const std::vector<std::string>& arguments,
                    const SpawnSettings& settings) {
  std::vector<char*> vector{const_cast<char*>(launchPath.c_str())};
  for (const std::string& argument : arguments) {
    vector.push_back(const_cast<char*>(argument.c_str()));
  }
  vector.push_back(nullptr);

  const std::string program = programFor(launchPath);
  pid_t child = 0;
  const int failure = ::posix_spawn(&child, program.c_str(), &settings.actions,
                                    &settings.attributes, vector.data(), environ);
  if (failure != 0) return Error{"cannot run " + program + ": " + std::strerror(failure)};
  return child;
}

int waitFor(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return kSignalStatusBase;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : kSignalStatusBase + WTERMSIG(status);
}

// Reads what there is. At the end of the stream, or when it fails, closes it.
void drain(FileDescriptor& stream, std::string& into) {
  std::array<char, 65536> buffer{};
  const ssize_t got = ::read(stream.get(), buffer.data(), buffer.size());
  if (got > 0) {
    into.append(buffer.data(), static_cast<size_t>(got));
  } else if (got == 0 || errno != EINTR) {
    stream.reset();
  }
}

}  // namespace

Result<int> runProgram(const std::string& launchPath, const std::vector<std::string>& arguments,
                       Streams streams) {
  SpawnSettings settings;
  if (streams == Streams::Discarded) {
    settings.discard(STDOUT_FILENO);
    settings.discard(STDERR_FILENO);
  }
  const Result<pid_t> child = spawn(launchPath, arguments, settings);
  if (!child) return child.error();
  return waitFor(*child);
}

Result<CapturedOutput> captureProgram(const std::string& launchPath,
                                      const std::vector<std::string>& arguments) {
  Result<Pipe> output = makePipe();
  if (!output) return output.error();
  Result<Pipe> errors = makePipe();
  if (!errors) return errors.error();

  SpawnSettings settings;
  settings.connect(STDOUT_FILENO, output->writeEnd);
  settings.connect(STDERR_FILENO, errors->writeEnd);
  const Result<pid_t> child = spawn(launchPath, arguments, settings);
  if (!child) return child.error();
  output->writeEnd.reset();
  errors->writeEnd.reset();

  CapturedOutput captured;
  while (output->readEnd || errors->readEnd) {
    // poll(2) leaves negative descriptors, those already at their end, alone.
    std::array<pollfd, 2> waiting{pollfd{output->readEnd.get(), POLLIN, 0},
                                  pollfd{errors->readEnd.get(), POLLIN, 0}};
    if (::poll(waiting.data(), waiting.size(), -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    if (waiting[0].revents != 0) drain(output->readEnd, captured.standardOutput);
    if (waiting[1].revents != 0) drain(errors->readEnd, captured.standardError);
  }
  (void)waitFor(*child);
  return captured;
}

}  // namespace tessel
