// Share-point records as other programs write them, for the tests of the share commands.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "tests/sandbox.h"

inline const std::string kRecordFolder = "/var/lib/directory/local/sharepoints";
inline const std::string kRecordLock = "/var/lib/directory/local/.sharepoints.lock";

// A host with a directory service that has no share point yet, and folders to share.
class ShareHost : public Sandbox {
 public:
  ShareHost();

  // Puts a file of these entries among the records.
  void record(const std::string& fileName, std::string_view entries) const;
  // The entries of a record that tesselctl wrote, without blanks between the tags.
  std::string entries(const std::string& fileName) const;
  // The names in the folder of records, hidden ones included; none when it is not there.
  std::vector<std::string> recordNames() const;
};

// An entry with an array of texts, in XML.
std::string attribute(const std::string& name, const std::vector<std::string>& values);

// The entries that make a record: its name and its folder.
std::string nameAndPath(const std::string& name, const std::string& path);

// A whole binary property list of arrays of ASCII texts.
std::string binaryRecord(const std::map<std::string, std::vector<std::string>>& attributes);

// One row of the listing.
std::string row(std::string name, std::string path, const std::string& webdav);

inline const std::string kNoShares = "\nNo Share Points are configured\n";
inline const std::string kListingHead =
    "\nConfigured Share Points:\n"
    "SHARE-POINT-NAME                    FILE-PATH                           WEBDAV?\n";
inline const std::string kSMBShared = "dsAttrTypeNative:smb_shared";
inline const std::string kAFPShared = "dsAttrTypeNative:afp_shared";
inline const std::string kWebDAVShared = "dsAttrTypeNative:webdav_shared";
inline const std::string kWebDAVName = "dsAttrTypeNative:webdav_name";
inline const std::string kPath = "dsAttrTypeNative:directory_path";
inline const std::string kName = "dsAttrTypeStandard:RecordName";
