// How the record of a name is found in a folder of record files. The encoding is one to one, and no
// name can reach outside the folder or hide from a listing:
//
//   Projects  Projects.plist     a/b  a%2Fb.plist
//   /         %2F.plist          50%  50%25.plist
//   ..        %2E..plist         a.b  a.b.plist
#pragma once

#include <string>
#include <string_view>

namespace tessel {

// The file name for a record name: the name with "/", "%", control bytes (0x00 to 0x1F and 0x7F)
// and a "." at its beginning as %XX in upper-case hexadecimal, then ".plist". All other bytes stay
// as they are. The empty name gives ".plist", which is the name of no record.
std::string recordFileName(std::string_view recordName);

// Whether a file of this name in the folder is a record: it ends in ".plist" and does not begin
// with ".", as temporary files do.
bool isRecordFileName(std::string_view fileName);

}  // namespace tessel
