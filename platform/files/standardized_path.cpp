#include "platform/files/standardized_path.h"

#include <algorithm>
#include <vector>

#include "platform/files/file_manager.h"
#include "platform/files/home_directory.h"

namespace tessel {

namespace {

std::string withHomeDirectory(std::string_view path) {
  if (!path.starts_with('~')) return std::string(path);
  const size_t end = std::min(path.find('/'), path.size());
  auto home = homeDirectory(std::string(path.substr(1, end - 1)));
  return home ? home->append(path.substr(end)) : std::string(path);
}

std::string withoutDetours(std::string_view path) {
  const bool absolute = path.starts_with('/');
  std::vector<std::string_view> kept;
  while (!path.empty()) {
    const size_t end = std::min(path.find('/'), path.size());
    const std::string_view component = path.substr(0, end);
    path.remove_prefix(std::min(end + 1, path.size()));
    if (component == ".." && absolute) {
      if (!kept.empty()) kept.pop_back();
    } else if (!component.empty() && (component != "." || (!absolute && kept.empty()))) {
      kept.push_back(component);
    }
  }
  std::string joined = absolute ? "/" : "";
  for (const std::string_view component : kept) {
    if (!joined.empty() && joined.back() != '/') joined += '/';
    joined += component;
  }
  return joined;
}

}  // namespace

std::string standardizedPath(std::string_view path) {
  constexpr std::string_view kPrivate = "/private";
  std::string standardized = withoutDetours(withHomeDirectory(path));
  if (standardized.starts_with(std::string(kPrivate) + "/")) {
    std::string shorter = standardized.substr(kPrivate.size());
    if (FileManager().fileExistsAtPath(shorter)) return shorter;
  }
  return standardized;
}

}  // namespace tessel
