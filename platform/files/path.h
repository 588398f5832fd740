// Paths as bytes: nothing here looks at the file system or changes a path's encoding.
#pragma once

#include <string>
#include <string_view>

namespace tessel {

// DIRECTORY and NAME with exactly one "/" between them.
std::string appendPathComponent(std::string_view directory, std::string_view name);

// The path with "." and the extension added after its whole last component.
std::string appendPathExtension(std::string_view path, std::string_view extension);

// What stands after the last "/" that is not a trailing one; "/" for the root, empty for an empty
// path.
std::string lastPathComponent(std::string_view path);

// Everything before the last component: "." for a bare name, "/" for what stands in the root.
std::string parentDirectory(std::string_view path);

// Whether one of the texts between the path's slashes is exactly this one.
bool hasPathComponent(std::string_view path, std::string_view component);

}  // namespace tessel
