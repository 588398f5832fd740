// What makes a directory record a share point: the attributes that the file-sharing services of the
// host keep in it. Each has one value.
#pragma once

#include <optional>
#include <string>

#include "platform/base/result.h"
#include "platform/directory/directory.h"

namespace tessel {

inline constexpr const char* kDirectoryPath = "dsAttrTypeNative:directory_path";
inline constexpr const char* kWebDAVShared = "dsAttrTypeNative:webdav_shared";  // "1" or "0"
inline constexpr const char* kWebDAVName = "dsAttrTypeNative:webdav_name";      // the record's name
inline constexpr const char* kSMBShared = "dsAttrTypeNative:smb_shared";  // never written here
inline constexpr const char* kAFPShared = "dsAttrTypeNative:afp_shared";  // never written here

struct SharePoint {
  std::string name;
  std::string folder;
  bool webdav = false;  // whether the flag begins with the number 1, as in "01" and " 1x"
};

// None for attributes that lack a name or a folder.
std::optional<SharePoint> sharePointOf(const RecordAttributes& attributes);

// The host's local directory node. The error says which part of the directory service is missing;
// its code is errno's number.
Result<DirectoryNode> openLocalNode();

}  // namespace tessel
