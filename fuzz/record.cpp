// A share-point record as another program may have left it: name 0xFF value 0xFF file.
#include <sys/stat.h>
#include <unistd.h>

#include "fuzz/fuzz.h"
#include "platform/base/text.h"
#include "platform/directory/directory.h"
#include "platform/directory/record_name.h"
#include "shares/share_point.h"

using namespace tessel;  // NOLINT(google-build-using-namespace)
using fuzz::require;

namespace {
constexpr const char* kAttribute = "dsAttrTypeNative:webdav_name";
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  fuzz::usePrivateFolders();
  for (const char* folder :
       {"/var/lib/directory", "/var/lib/directory/local", "/var/lib/directory/local/sharepoints"}) {
    require(::mkdir(folder, 0755) == 0);
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr size_t kLongestFileName = 255;
  std::string_view rest = fuzz::text(data, size);
  const std::string name(fuzz::takeField(rest));
  const std::string value(fuzz::takeField(rest));
  const std::string fileName = recordFileName(name);
  require(fileName.find_first_of(std::string_view("/\0", 2)) == std::string::npos);
  if (name.empty() || fileName.size() > kLongestFileName) return 0;

  const std::string path = "/var/lib/directory/local/sharepoints/" + fileName;
  fuzz::writeFile(path.c_str(), rest);
  const auto node = DirectoryNode::open();
  require(node->sharePoints()->size() == 1);
  // It is found under the name that it says, or else under that of its file.
  const auto details = node->sharePoints()->front().details();
  const auto share = details ? sharePointOf(*details) : std::nullopt;
  const auto found = node->sharePoint(share ? share->name : name);
  if (share) require(found && *found);
  if (found && *found) {
    const DirectoryRecord& record = **found;
    const auto before = record.details();
    const Status set = record.setValues(kAttribute, {value});
    const auto after = record.details();
    auto expected = *before;
    if (set) expected[kAttribute] = {value};
    require(*after == expected);
    require(isXMLText(value) || !set);
    // After a change it is not what was looked up any more.
    require(static_cast<bool>(record.remove()) == !set);
  }
  require(!node->createSharePoint(name, {}) || !::access(path.c_str(), F_OK));
  (void)::unlink(path.c_str());
  return 0;
}
