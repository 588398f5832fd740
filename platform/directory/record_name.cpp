#include "platform/directory/record_name.h"

#include "platform/base/hexadecimal.h"

namespace tessel {

namespace {

constexpr std::string_view kExtension = ".plist";

bool isControl(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 || byte == 0x7F;
}

}  // namespace

std::string recordFileName(std::string_view recordName) {
  std::string fileName;
  for (const char c : recordName) {
    if (c == '/' || c == '%' || isControl(c) || (c == '.' && fileName.empty())) {
      fileName += percentEncoded(c);
    } else {
      fileName += c;
    }
  }
  return fileName.append(kExtension);
}

bool isRecordFileName(std::string_view fileName) {
  return fileName.ends_with(kExtension) && !fileName.starts_with('.');
}

}  // namespace tessel
