#include "platform/files/path.h"

namespace tessel {

namespace {

std::string_view withoutTrailingSlashes(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  return path;
}

}  // namespace

std::string appendPathComponent(std::string_view directory, std::string_view name) {
  std::string joined(withoutTrailingSlashes(directory));
  if (joined.empty() || joined.back() != '/') joined += '/';
  return joined.append(name);
}

std::string appendPathExtension(std::string_view path, std::string_view extension) {
  return std::string(path).append(".").append(extension);
}

std::string lastPathComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  if (path == "/") return "/";
  return std::string(path.substr(path.rfind('/') + 1));
}

std::string parentDirectory(std::string_view path) {
  path = withoutTrailingSlashes(path);
  const size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return ".";
  return std::string(withoutTrailingSlashes(path.substr(0, slash + 1)));
}

bool hasPathComponent(std::string_view path, std::string_view component) {
  for (;;) {
    const size_t slash = path.find('/');
    if (path.substr(0, slash) == component) return true;
    if (slash == std::string_view::npos) return false;
    path.remove_prefix(slash + 1);
  }
}

}  // namespace tessel
