// The form of a path in which a folder is recorded for other services.
#pragma once

#include <string>
#include <string_view>

namespace tessel {

// The path with
//   - a leading "~" or "~USER" replaced by the home directory of the effective or the named user,
//     if the user has one in the user database;
//   - "//" and "/./" collapsed to one "/", and "/." or "/" dropped at the end;
//   - in an absolute path, ".." and the component before it dropped (by their names: links are not
//     looked at);
//   - a leading "/private" dropped when the rest names something that exists.
// A relative path stays relative, keeps its ".." and a "./" at its beginning.
std::string standardizedPath(std::string_view path);

}  // namespace tessel
