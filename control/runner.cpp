#include "control/tessel_ctl.h"
#include "platform/base/text.h"
#include "platform/files/path.h"
#include "platform/process/program.h"

namespace tessel {

namespace {

constexpr const char* kLaunchctl = "/bin/launchctl";

bool launchctlSucceeds(const std::vector<std::string>& arguments, Streams streams) {
  const Result<int> status = runProgram(kLaunchctl, arguments, streams);
  return status && *status == 0;
}

}  // namespace

std::string TesselCtl::resultsFromCommand(const std::string& launchPath,
                                          const std::vector<std::string>& args) const {
  const auto output = captureProgram(launchPath, args);
  if (!output) return output.error().description;
  std::string results;
  for (const std::string& stream : {output->standardOutput, output->standardError}) {
    if (isUTF8(stream)) results += trimmed(stream);
  }
  return results;
}

std::string TesselCtl::plistPathForLabel(const std::string& label) const {
  return appendPathExtension(appendPathComponent("/System/Library/LaunchDaemons", label), "plist");
}

bool TesselCtl::launchJobIsLoaded(const std::string& label) const {
  return launchctlSucceeds({"list", label}, Streams::Discarded);
}

bool TesselCtl::loadLaunchJob(const std::string& label) const {
  return launchctlSucceeds({"load", "-w", plistPathForLabel(label)}, Streams::Inherited);
}

bool TesselCtl::unloadLaunchJob(const std::string& label) const {
  return launchctlSucceeds({"unload", "-w", plistPathForLabel(label)}, Streams::Discarded);
}

std::vector<std::string> TesselCtl::tesselPlists() const {
  auto names = fileManager.contentsOfDirectory(launchAgentsDirectory);
  if (!names) return {};
  std::erase_if(*names, [](const std::string& name) {
    return name.find("org.apache.httpd.tessel") == std::string::npos;
  });
  return std::move(*names);
}

}  // namespace tessel
