#include "platform/process/program.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
extern "C" {
#include <sys/pidfd.h>  // glibc 2.36 forgets to say that it is C
}

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "platform/files/file_descriptor.h"

namespace tessel {

namespace {

constexpr const char* kAdapterRoot = PLATFORM_ADAPTER_ROOT;
constexpr int kSignalStatusBase = 128;  // as in a shell's $?
constexpr int kMillisecondsToDie = 1000;

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
    addFlags(POSIX_SPAWN_SETSIGDEF);
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
  void setApart() {
    sigset_t none;
    sigset_t all;
    (void)::sigemptyset(&none);
    (void)::sigfillset(&all);
    (void)::posix_spawnattr_setsigmask(&attributes, &none);
    (void)::posix_spawnattr_setsigdefault(&attributes, &all);
    addFlags(POSIX_SPAWN_SETSIGMASK);
    environment = noVariables_.data();
  }
  void makeGroup() {
    (void)::posix_spawnattr_setpgroup(&attributes, 0);
    addFlags(POSIX_SPAWN_SETPGROUP);
  }
  void discard(int stream) {
    (void)::posix_spawn_file_actions_addopen(&actions, stream, "/dev/null", O_WRONLY, 0);
  }

  posix_spawn_file_actions_t actions{};
  posix_spawnattr_t attributes{};
  char** environment = environ;

 private:
  void addFlags(int more) {
    flags_ |= more;
    (void)::posix_spawnattr_setflags(&attributes, static_cast<short>(flags_));
  }

  int flags_ = 0;
  std::array<char*, 1> noVariables_{nullptr};
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
                                    &settings.attributes, vector.data(), settings.environment);
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

// Adds what a stream holds at this moment, without waiting for more.
void drainRest(FileDescriptor& stream, std::string& into) {
  if (!stream) return;
  (void)::fcntl(stream.get(), F_SETFL, O_NONBLOCK);
  while (stream) {
    const size_t before = into.size();
    drain(stream, into);
    if (into.size() == before) return;
  }
}

// What is left of a time limit, for poll(2).
class Deadline {
 public:
  explicit Deadline(std::chrono::milliseconds limit)
      : end_(std::chrono::steady_clock::now() + limit) {}
  int millisecondsLeft() const {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end_ - std::chrono::steady_clock::now());
    return static_cast<int>(std::max<std::chrono::milliseconds::rep>(0, left.count()));
  }

 private:
  std::chrono::steady_clock::time_point end_;
};

// Collects the child's output until it ends. Returns false when the time is over before.
bool collectUntilEnd(const FileDescriptor& process, const Deadline& deadline,
                     FileDescriptor& output, FileDescriptor& errors, CapturedOutput& captured) {
  for (;;) {
    std::array<pollfd, 3> waiting{pollfd{process.get(), POLLIN, 0}, pollfd{output.get(), POLLIN, 0},
                                  pollfd{errors.get(), POLLIN, 0}};
    const int ready = ::poll(waiting.data(), waiting.size(), deadline.millisecondsLeft());
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return false;
    if (waiting[1].revents != 0) drain(output, captured.standardOutput);
    if (waiting[2].revents != 0) drain(errors, captured.standardError);
    if (waiting[0].revents != 0) return true;
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

Result<ProgramEnd> runBounded(const std::string& launchPath,
                              const std::vector<std::string>& arguments, const Bounds& bounds) {
  constexpr size_t kLongestInput = 4096;
  if (bounds.input.size() > kLongestInput) return Error{"too much input for " + launchPath};
  Result<Pipe> input = makePipe();
  if (!input) return input.error();
  Result<Pipe> output = makePipe();
  if (!output) return output.error();
  Result<Pipe> errors = makePipe();
  if (!errors) return errors.error();
  if (::write(input->writeEnd.get(), bounds.input.data(), bounds.input.size()) !=
      static_cast<ssize_t>(bounds.input.size())) {
    return Error{std::string("cannot write to a pipe: ") + std::strerror(errno)};
  }
  input->writeEnd.reset();

  SpawnSettings settings;
  settings.connect(STDIN_FILENO, input->readEnd);
  settings.connect(STDOUT_FILENO, output->writeEnd);
  settings.connect(STDERR_FILENO, errors->writeEnd);
  settings.makeGroup();
  if (bounds.surroundings == Surroundings::Apart) settings.setApart();
  const Deadline deadline(bounds.limit);
  const Result<pid_t> child = spawn(launchPath, arguments, settings);
  if (!child) return child.error();
  input->readEnd.reset();
  output->writeEnd.reset();
  errors->writeEnd.reset();

  ProgramEnd end;
  const FileDescriptor process(::pidfd_open(*child, 0));
  if (!process ||
      !collectUntilEnd(process, deadline, output->readEnd, errors->readEnd, end.output)) {
    (void)::kill(-*child, SIGKILL);
    // A child that the kernel holds, or that may not be killed, is left to itself.
    pollfd waiting{process.get(), POLLIN, 0};
    if (::poll(&waiting, 1, kMillisecondsToDie) > 0) (void)waitFor(*child);
    return Error{launchPath + " did not end in time and was killed"};
  }
  end.status = waitFor(*child);
  drainRest(output->readEnd, end.output.standardOutput);
  drainRest(errors->readEnd, end.output.standardError);
  return end;
}

}  // namespace tessel
