// The types of files by their names, as Apache is configured to tell them.
#pragma once

#include <httpd.h>

#include <map>
#include <string>
#include <string_view>

namespace tessel {

// For the entries of a listing. Belongs to one request.
class ContentTypes {
 public:
  explicit ContentTypes(request_rec* request) : request_(request) {}
  // Of a file of this name; empty when Apache knows none.
  std::string_view ofFile(std::string_view name);

 private:
  request_rec* request_;
  std::map<std::string, std::string, std::less<>> known_;  // by what follows the first dot
};

// As Apache's own handler for folders is called, which clients of WebDAV have long seen.
inline constexpr const char* kFolderType = "httpd/unix-directory";

}  // namespace tessel
