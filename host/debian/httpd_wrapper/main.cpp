// httpd-wrapper ARGUMENT...
// Starts Apache under the process name httpd, with these arguments and with what its environment
// property list adds. Debian's apache2ctl runs it in Apache's place where APACHE_HTTPD names it.
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "host/debian/httpd_wrapper/apache_start.h"
#include "platform/files/file_manager.h"
#include "platform/files/path.h"
#include "platform/process/console.h"
#include "platform/process/process.h"

namespace {

constexpr const char* kEnvironmentList = "/etc/apache2/env.plist";
constexpr const char* kApacheControl = "/usr/sbin/apache2ctl";
constexpr const char* kProgramVariable = "APACHE_HTTPD";

void remark(const std::string& text) { tessel::printErrorLine("httpd-wrapper: " + text); }

// Becomes another program; returns only when that fails, with this program's exit status.
int become(const std::string& program, const std::vector<std::string>& arguments) {
  std::vector<char*> vector{const_cast<char*>(program.c_str())};
  for (const std::string& argument : arguments) {
    vector.push_back(const_cast<char*>(argument.c_str()));
  }
  vector.push_back(nullptr);
  ::execv(program.c_str(), vector.data());
  remark("cannot start " + program + ": " + std::strerror(errno));
  return EXIT_FAILURE;
}

// An absent list is an empty one, a malformed one as well.
tessel::PropertyList environmentList() {
  if (tessel::FileManager().fileExistsAtPath(kEnvironmentList)) {
    auto list = tessel::PropertyList::load(kEnvironmentList);
    if (list) return std::move(*list);
    remark(std::string(kEnvironmentList) + " is not used: " + list.error().description);
  }
  return {};
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  const auto program = tessel::executablePath();
  if (!program) {
    remark("cannot find itself");
    return EXIT_FAILURE;
  }

  // Debian's Apache needs the variables of /etc/apache2/envvars, a shell script that apache2ctl
  // reads. Whoever calls this program directly is led through it, which comes back here.
  const char* started = std::getenv(kProgramVariable);
  if (started == nullptr || *program != started) {
    ::setenv(kProgramVariable, program->c_str(), 1);
    if (arguments.empty()) arguments = {"-k", "start"};
    return become(kApacheControl, arguments);
  }

  const tessel::ApacheStart start = tessel::apacheStart(environmentList());
  for (const std::string& text : start.remarks) remark(text);
  for (const auto& [name, value] : start.variables) ::setenv(name.c_str(), value.c_str(), 1);
  std::vector<std::string> apacheArguments;
  for (const std::string& name : start.defines)
    apacheArguments.insert(apacheArguments.end(), {"-D", name});
  apacheArguments.insert(apacheArguments.end(), arguments.begin(), arguments.end());
  // The link's name becomes the process name.
  return become(tessel::appendPathComponent(tessel::parentDirectory(*program), "httpd"),
                apacheArguments);
}
