// What makes a directory record a share point: the attributes that the file-sharing services of the
// host keep in it. Each has one value.
#pragma once

#include <optional>
#include <string>

#include "platform/directory/directory.h"

namespace tessel {

inline constexpr const char* kDirectoryPath = "dsAttrTypeNative:directory_path";
inline constexpr const char* kWebDAVShared = "dsAttrTypeNative:webdav_shared";  // "1" or "0"
inline constexpr const char* kWebDAVName = "dsAttrTypeNative:webdav_name";      // the record's name
inline constexpr const char* kSMBShared = "dsAttrTypeNative:smb_shared";  // never written here
inline constexpr const char* kAFPShared = "dsAttrTypeNative:afp_shared";  // never written here

// A share point as it is listed.
struct ShareSummary {
  std::string name;
  std::string path;
  std::string iswebdav;  // "Yes" or "No"
};

// The host's local directory node, or none after an error line that says what is missing.
std::optional<DirectoryNode> openLocalNode();

}  // namespace tessel
