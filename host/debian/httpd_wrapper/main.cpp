// httpd-wrapper ARGUMENT...
// Starts Apache under the process name httpd, with these arguments and with what its environment
// property list adds. Debian's apache2ctl runs it in Apache's place where APACHE_HTTPD names it.
//
// When Apache does not start with Tessel in it, it is started without, so that its other sites are
// served: standard error and kReasonFile say why. With "--remarks" it only says what of Tessel's
// settings cannot be used.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "contract/apache_environment.h"
#include "contract/paths.h"
#include "host/debian/httpd_wrapper/apache_start.h"
#include "host/debian/httpd_wrapper/failure.h"
#include "host/debian/httpd_wrapper/identity.h"
#include "host/debian/httpd_wrapper/settings.h"
#include "platform/files/file_descriptor.h"
#include "platform/files/file_manager.h"
#include "platform/files/path.h"
#include "platform/process/console.h"
#include "platform/process/process.h"
#include "platform/process/program.h"

namespace {

using Arguments = std::vector<std::string>;

constexpr const char* kApacheControl = "/usr/sbin/apache2ctl";
constexpr const char* kProgramVariable = "APACHE_HTTPD";
// Set for the one run of this program that becomes Apache: "with" or "without" Tessel.
constexpr const char* kStepVariable = "HTTPD_WRAPPER_STEP";
// Set by an init script that tests the configuration before it starts Apache.
constexpr const char* kTestVariable = "HTTPD_WRAPPER_TESTS_START";
// By this name Debian's scripts look for the running Apache in the list of processes.
constexpr const char* kApacheName = "/usr/sbin/apache2";

void remark(const std::string& text) { tessel::printErrorLine("httpd-wrapper: " + text); }

// Becomes another program; returns only when that fails, with this program's exit status.
int become(const std::string& program, const std::string& name, const Arguments& arguments) {
  std::vector<char*> vector{const_cast<char*>(name.c_str())};
  for (const std::string& argument : arguments) {
    vector.push_back(const_cast<char*>(argument.c_str()));
  }
  vector.push_back(nullptr);
  ::execv(program.c_str(), vector.data());
  remark("cannot start " + program + ": " + std::strerror(errno));
  return EXIT_FAILURE;
}

bool isTesselOn() { return !tessel::FileManager().isAbsent(tessel::kActiveApacheConfiguration); }

// An absent list is an empty one, a malformed one as well. Neither says on which terms Tessel is to
// serve, so it does not.
tessel::ApacheStart apacheStart() {
  if (!tessel::FileManager().isAbsent(tessel::kApacheEnvironmentFile)) {
    const auto list = tessel::PropertyList::load(tessel::kApacheEnvironmentFile);
    if (list) return tessel::apacheStart(*list);
    auto start = tessel::withoutTessel(tessel::apacheStart({}));
    start.remarks = {std::string(tessel::kApacheEnvironmentFile) +
                     " is not used: " + list.error().description};
    return start;
  }
  auto start = tessel::withoutTessel(tessel::apacheStart({}));
  if (isTesselOn()) start.remarks = {std::string("there is no ") + tessel::kApacheEnvironmentFile};
  return start;
}

int becomeApache(const std::string& program, const Arguments& arguments, bool withTessel) {
  tessel::ApacheStart start = apacheStart();
  if (!withTessel) start = tessel::withoutTessel(start);
  for (const auto& [name, value] : start.variables) ::setenv(name.c_str(), value.c_str(), 1);
  ::unsetenv(kStepVariable);
  ::unsetenv(kTestVariable);
  Arguments all;
  for (const std::string& name : start.defines) all.insert(all.end(), {"-D", name});
  all.insert(all.end(), arguments.begin(), arguments.end());
  // The link's name becomes the process name.
  return become(tessel::appendPathComponent(tessel::parentDirectory(program), "httpd"), kApacheName,
                all);
}

// Runs Apache as becomeApache() does and returns its exit status. A server goes on in the
// background.
int runApache(const std::string& program, const Arguments& arguments, bool withTessel) {
  ::setenv(kStepVariable, withTessel ? "with" : "without", 1);
  const auto status = tessel::runProgram(program, arguments, tessel::Streams::Inherited);
  ::unsetenv(kStepVariable);
  if (!status) remark(status.error().description);
  return status.valueOr(EXIT_FAILURE);
}

// The same; what it writes to standard error is shown and returned.
int runApache(const std::string& program, const Arguments& arguments, std::string* errors) {
  // A file and no pipe, which would stay open for as long as the server runs.
  const tessel::FileDescriptor file(::memfd_create("errors", MFD_CLOEXEC));
  const tessel::FileDescriptor terminal(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  if (file && terminal) ::dup2(file.get(), STDERR_FILENO);
  const int status = runApache(program, arguments, true);
  if (file && terminal) ::dup2(terminal.get(), STDERR_FILENO);
  std::array<char, 4096> buffer{};
  for (;;) {
    const ssize_t got =
        ::pread(file.get(), buffer.data(), buffer.size(), static_cast<off_t>(errors->size()));
    if (got <= 0) break;
    errors->append(buffer.data(), static_cast<size_t>(got));
  }
  (void)tessel::writeAll(STDERR_FILENO, *errors);
  return status;
}

void printRemarks() {
  for (const std::string& text : apacheStart().remarks) remark(text);
  if (!tessel::FileManager().fileExistsAtPath(tessel::kSettingsFile)) return;
  const auto settings = tessel::PropertyList::load(tessel::kSettingsFile);
  if (!settings) return;  // tesselctl says so
  for (const std::string& text : tessel::settingsRemarks(*settings)) {
    remark(std::string(tessel::kSettingsFile) + ": " + text);
  }
}

// Whether Apache reads its configuration with these arguments, which it does not to stop.
bool readsConfiguration(const Arguments& arguments) {
  return arguments.empty() || !arguments.back().ends_with("stop");
}

// Before Apache reads its configuration.
void prepareIdentity() {
  const tessel::ApacheStart start = apacheStart();
  const auto& defines = start.defines;
  if (std::find(defines.begin(), defines.end(), "TESSEL_SSL") == defines.end()) return;
  const tessel::Status told =
      tessel::tellIdentity(start.variables.at(tessel::environment::kCertID));
  if (!told) remark(told.error().description);
}

int start(const std::string& program, const Arguments& arguments) {
  const tessel::FileManager files;
  (void)files.removeItem(tessel::kReasonFile);
  if (!isTesselOn()) return runApache(program, arguments, true);
  printRemarks();
  std::string reason;
  const tessel::ApacheStart wanted = apacheStart();
  if (std::find(wanted.defines.begin(), wanted.defines.end(), "TESSEL") != wanted.defines.end()) {
    std::string errors;
    const int status = runApache(program, arguments, &errors);
    if (status == EXIT_SUCCESS) return EXIT_SUCCESS;
    reason = tessel::failureReason(errors, wanted.variables.at(tessel::environment::kServerPort));
  } else {
    reason = wanted.remarks.empty() ? "" : wanted.remarks.front();
  }
  // The end of the reason tells most.
  remark("Apache is started without Tessel: " + reason.substr(reason.rfind('\n') + 1));
  (void)files.createDirectory(tessel::kRunFolder, tessel::kRunFolderMode);
  (void)files.writeAtomically(tessel::kReasonFile, reason + "\n",
                              tessel::FileManager::Attributes::KeepExisting);
  const int status = runApache(program, arguments, false);
  // Then it was not for Tessel.
  if (status != EXIT_SUCCESS) (void)files.removeItem(tessel::kReasonFile);
  return status;
}

// Whether it is a start that leaves a server in the background. What comes before the last words
// are an administrator's own arguments.
bool isStart(const Arguments& arguments) {
  const auto staysInFront = [](const std::string& argument) {
    return argument == "-X" || argument.ends_with("FOREGROUND") ||
           argument.ends_with("NO_DETACH") || argument.ends_with("ONE_PROCESS") ||
           argument.ends_with("DEBUG");
  };
  const size_t count = arguments.size();
  return count >= 2 && arguments[count - 2] == "-k" && arguments[count - 1] == "start" &&
         std::none_of(arguments.begin(), arguments.end(), staysInFront);
}

bool isTest(const Arguments& arguments) { return !arguments.empty() && arguments.back() == "-t"; }

}  // namespace

int main(int argc, char** argv) {
  Arguments arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  const auto program = tessel::executablePath();
  if (!program) {
    remark("cannot find itself");
    return EXIT_FAILURE;
  }
  if (arguments == Arguments{"--remarks"}) {
    printRemarks();
    return EXIT_SUCCESS;
  }

  // Debian's Apache needs the variables of /etc/apache2/envvars, a shell script that apache2ctl
  // reads. Whoever calls this program directly is led through it, which comes back here.
  const char* started = std::getenv(kProgramVariable);
  if (started == nullptr || *program != started) {
    ::setenv(kProgramVariable, program->c_str(), 1);
    if (arguments.empty()) arguments = {"-k", "start"};
    return become(kApacheControl, kApacheControl, arguments);
  }
  if (const char* step = std::getenv(kStepVariable)) {
    return becomeApache(*program, arguments, std::strcmp(step, "with") == 0);
  }
  if (isTesselOn() && readsConfiguration(arguments)) prepareIdentity();
  if (isStart(arguments)) return start(*program, arguments);
  if (isTest(arguments) && std::getenv(kTestVariable) != nullptr && isTesselOn()) {
    const int status = runApache(*program, arguments, true);
    return status == EXIT_SUCCESS ? status : runApache(*program, arguments, false);
  }
  if (isTest(arguments)) printRemarks();
  // An Apache that runs without Tessel is not told about it either.
  const bool isWithout = tessel::FileManager().fileExistsAtPath(tessel::kReasonFile);
  if (isTest(arguments) && isWithout)
    remark(std::string("Apache runs without Tessel, see ") + tessel::kReasonFile);
  return becomeApache(*program, arguments, !isWithout);
}
