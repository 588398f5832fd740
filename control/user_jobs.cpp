#include "control/user_jobs.h"

#include <utility>

#include "platform/files/file_manager.h"

namespace tessel {

namespace {

// Cuts off what follows the text's last dot, and the dot, and returns it. A text without a dot has
// nothing to cut off.
std::string takeExtension(std::string& text) {
  const size_t dot = text.rfind('.');
  if (dot == std::string::npos) return {};
  std::string extension = text.substr(dot + 1);
  text.erase(dot);
  return extension;
}

}  // namespace

std::vector<std::string> tesselPlists(const std::string& launchAgentsDirectory) {
  auto names = FileManager().contentsOfDirectory(launchAgentsDirectory);
  if (!names) return {};
  std::erase_if(*names, [](const std::string& name) {
    return name.find("org.apache.httpd.tessel") == std::string::npos;
  });
  return *std::move(names);
}

UserJob userJob(std::string name) {
  UserJob job;
  (void)takeExtension(name);
  job.port = takeExtension(name);
  const std::string userAndPID = takeExtension(name);
  const size_t dash = userAndPID.find('-');
  job.user = userAndPID.substr(0, dash);
  if (dash != std::string::npos) {
    job.mapperPID = userAndPID.substr(dash + 1, userAndPID.find('-', dash + 1) - dash - 1);
  }
  return job;
}

}  // namespace tessel
