// What a URL means below the location at which shares are served.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tessel {

struct ShareURL {
  enum class Kind { List, ShareRoot, InsideShare } kind = Kind::List;
  std::string_view name;  // of the share, empty for the list
  std::string_view rest;  // what follows the name
};

// The meaning of a decoded path, of which it keeps parts. The location is a path without "/" at its
// end. None when the path does not lie there.
std::optional<ShareURL> shareURL(std::string_view location, std::string_view path);

// Whether the share of this name has a URL.
bool hasURL(std::string_view shareName);

// The path of a file's URL, percent-encoded, with one slash between names and one at the end of a
// folder's. `path` is the file's in the share.
std::string urlPath(std::string_view location, std::string_view shareName, std::string_view path,
                    bool isFolder);

}  // namespace tessel
