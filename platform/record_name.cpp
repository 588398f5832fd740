#include "platform/record_name.h"

namespace tessel {

namespace {

constexpr std::string_view kExtension = ".plist";

bool isControl(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 || byte == 0x7F;
}

}  // namespace

std::string recordFileName(std::string_view recordName) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string fileName;
  for (const char c : recordName) {
    if (c == '/' || c == '%' || isControl(c) || (c == '.' && fileName.empty())) {
      const unsigned byte = static_cast<unsigned char>(c);
      fileName += {'%', kDigits[byte >> 4U], kDigits[byte & 0xFU]};
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
