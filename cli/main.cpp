// tesselctl: does the one command that it is given, as root, and exits.

#include <algorithm>
#include <array>
#include <functional>
#include <string>
#include <vector>

#include "control/tessel_ctl.h"
#include "platform/files/path.h"
#include "platform/process/console.h"
#include "platform/process/process.h"

namespace {

using tessel::TesselCtl;

constexpr int kSuccess = 0;
constexpr int kFailure = 1;
constexpr int kNotInstalled = 2;

struct Command {
  const char* word;
  int (*run)(TesselCtl& controller, const std::vector<std::string>& arguments);
};

int status(TesselCtl& controller, const std::vector<std::string>& /*arguments*/) {
  tessel::printLine(controller.isEnabled() ? "enabled" : "disabled");
  return kSuccess;
}

int start(TesselCtl& controller, const std::vector<std::string>& /*arguments*/) {
  return controller.start() ? kSuccess : kFailure;
}

int stop(TesselCtl& controller, const std::vector<std::string>& /*arguments*/) {
  return controller.stop() ? kSuccess : kFailure;
}

int shares(TesselCtl& controller, const std::vector<std::string>& /*arguments*/) {
  controller.showShares();
  return kSuccess;
}

// Without a path there is nothing to do, which is no error.
int share(TesselCtl& controller, const std::vector<std::string>& arguments) {
  return arguments.size() < 3 || controller.addShare(arguments[2]) ? kSuccess : kFailure;
}

int unshare(TesselCtl& controller, const std::vector<std::string>& arguments) {
  return arguments.size() < 3 || controller.removeShare(arguments[2]) ? kSuccess : kFailure;
}

// The result is the status: a report, which is always made, ends with 1.
int diagnose(TesselCtl& controller, const std::vector<std::string>& /*arguments*/) {
  return static_cast<int>(controller.diagnose());
}

constexpr std::array kCommands{
    Command{"status", status},     Command{"start", start}, Command{"stop", stop},
    Command{"shares", shares},     Command{"share", share}, Command{"unshare", unshare},
    Command{"diagnose", diagnose},
};

std::string usageText(const std::string& executableName) {
  return "Tessel control utility.\nUsage: " + executableName +
         " [ start | stop | status | shares | [un]share <path>| diagnose ]\n";
}

}  // namespace

int main(int argc, char** argv) {
  if (!tessel::prepareProcess()) return kFailure;
  const std::vector<std::string> arguments(argv, argv + argc);
  const std::string usage =
      usageText(tessel::lastPathComponent(arguments.empty() ? "" : arguments[0]));
  const bool askedForUsage = std::find(arguments.begin(), arguments.end(), "-h") != arguments.end();
  if (arguments.size() < 2 || arguments.size() > 3 || askedForUsage) {
    tessel::printLine(usage);
    return kSuccess;
  }
  if (tessel::effectiveUserID() != 0) {
    tessel::reportError("Must run as root");
    return kFailure;
  }
  const auto controller = TesselCtl::init();
  if (!controller) {
    tessel::reportError("Cannot proceed.");
    return kNotInstalled;
  }
  const auto* const command =
      std::find_if(kCommands.begin(), kCommands.end(),
                   [&](const Command& candidate) { return arguments[1] == candidate.word; });
  if (command == kCommands.end()) {
    tessel::print(usage);
    return kSuccess;
  }
  return command->run(*controller, arguments);
}
