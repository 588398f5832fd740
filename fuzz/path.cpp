// Paths and texts: path 0xFF text.
#include "platform/files/path.h"

#include "fuzz/fuzz.h"
#include "platform/base/hexadecimal.h"
#include "platform/base/text.h"
#include "platform/files/standardized_path.h"

using namespace tessel;  // NOLINT(google-build-using-namespace)
using fuzz::require;

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) { return 0; }

namespace {

void checkPath(const std::string& path, const std::string& name) {
  const std::string last = lastPathComponent(path);
  require(last == "/" || last.find('/') == std::string::npos);
  require(path.empty() || !last.empty());
  require(last == "/" || path.empty() || hasPathComponent(path, last));
  const std::string parent = parentDirectory(path);
  require(!parent.empty() && (parent == "/" || !parent.ends_with('/')));
  if (!name.empty() && name.find('/') == std::string::npos) {
    const std::string joined = appendPathComponent(path, name);
    require(lastPathComponent(joined) == name && hasPathComponent(joined, name));
    require(parentDirectory(joined) == parentDirectory(path + "/x"));
  }

  const std::string standardized = standardizedPath(path);
  require(standardized.find("//") == std::string::npos);
  require(standardized == "/" || !standardized.ends_with('/'));
  if (path.starts_with('/')) {
    require(standardized.starts_with('/'));
    require(!hasPathComponent(standardized, ".") && !hasPathComponent(standardized, ".."));
  }
  // "/private/private/x" may lose one component at a time, "./~" is no home directory twice.
  if (!path.starts_with("/") || hasPathComponent(path, "private")) return;
  require(standardizedPath(standardized) == standardized);
}

void checkText(const std::string& text) {
  require(!isXMLText(text) || isUTF8(text));
  const std::string core = trimmed(text);
  require(text.find(core) != std::string::npos && trimmed(core) == core);
  require(isUTF8(text) == isUTF8(core));
  require(padded(text, 35).starts_with(text) && padded(text, 35).size() >= 35);
  require(hexadecimal(text).size() == 2 * text.size());
  const std::int32_t integer = leadingInteger(text);
  require(leadingInteger(std::to_string(integer)) == integer && leadingInteger(core) == integer);
  require(saysYes(core) == saysYes(text) && (integer == 0 || saysYes(text)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view rest = fuzz::text(data, size);
  const std::string path(fuzz::takeField(rest));
  checkPath(path, std::string(rest));
  checkText(std::string(rest));
  return 0;
}
