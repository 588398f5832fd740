#include "host/debian/mod_tessel/share_url.h"

#include <algorithm>

#include "platform/base/percent_encoding.h"

namespace tessel {

std::optional<ShareURL> shareURL(std::string_view location, std::string_view path) {
  if (!path.starts_with(location)) return std::nullopt;
  path.remove_prefix(location.size());
  if (!path.empty() && path.front() != '/') return std::nullopt;
  path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()));
  ShareURL url;
  if (path.empty()) return url;
  url.name = path.substr(0, path.find('/'));
  url.rest = path.substr(url.name.size());
  url.kind = url.rest.find_first_not_of('/') == std::string_view::npos
                 ? ShareURL::Kind::ShareRoot
                 : ShareURL::Kind::InsideShare;
  return url;
}

bool hasURL(std::string_view shareName) {
  return !shareName.empty() && shareName != "." && shareName != ".." &&
         shareName.find('/') == std::string_view::npos &&
         shareName.find('\0') == std::string_view::npos;
}

std::string urlPath(std::string_view location, std::string_view shareName, std::string_view path,
                    bool isFolder) {
  std::string url(location);
  url += '/';
  appendPercentEncoded(url, shareName);
  while (path.ends_with('/')) path.remove_suffix(1);
  while (!path.empty()) {
    path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()));
    const std::string_view name = path.substr(0, path.find('/'));
    url += '/';
    appendPercentEncoded(url, name);
    path.remove_prefix(name.size());
  }
  if (isFolder) url += '/';
  return url;
}

}  // namespace tessel
