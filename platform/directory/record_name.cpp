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

std::optional<std::string> recordName(std::string_view fileName) {
  if (!isRecordFileName(fileName)) return std::nullopt;
  std::string_view rest = fileName.substr(0, fileName.size() - kExtension.size());
  std::string name;
  while (!rest.empty()) {
    const auto high = rest.size() < 3 ? std::string_view::npos : kUpperCaseDigits.find(rest[1]);
    const auto low = rest.size() < 3 ? std::string_view::npos : kUpperCaseDigits.find(rest[2]);
    const bool isEscape =
        rest[0] == '%' && high != std::string_view::npos && low != std::string_view::npos;
    name += isEscape ? static_cast<char>(high << 4U | low) : rest[0];
    rest.remove_prefix(isEscape ? 3 : 1);
  }
  // One name has one file: others that would read the same are not looked at.
  if (recordFileName(name) != fileName) return std::nullopt;
  return name;
}

bool isRecordFileName(std::string_view fileName) {
  return fileName.ends_with(kExtension) && !fileName.starts_with('.');
}

}  // namespace tessel
