#include "tests/share_records.h"

#include <regex>

ShareHost::ShareHost() {
  makeFolder("/var/lib/directory/local");
  write(kRecordLock, "", 0600);
  makeFolder("/srv/Projects");
  makeFolder("/srv/Other/Projects");
}

void ShareHost::record(const std::string& fileName, std::string_view entries) const {
  write(kRecordFolder + "/" + fileName, dictionary(entries));
}

std::string ShareHost::entries(const std::string& fileName) const {
  const std::string list = read(kRecordFolder + "/" + fileName);
  const std::string opening = "<plist version=\"1.0\">\n<dict>";
  const size_t begin = list.find(opening);
  const size_t end = list.rfind("</dict>\n</plist>\n");
  if (begin == std::string::npos || end == std::string::npos) return "(no record) " + list;
  const size_t from = begin + opening.size();
  return std::regex_replace(list.substr(from, end - from), std::regex("[\t\n]+"), "");
}

std::vector<std::string> ShareHost::recordNames() const {
  return exists(kRecordFolder) ? names(kRecordFolder) : std::vector<std::string>{};
}

std::string attribute(const std::string& name, const std::vector<std::string>& values) {
  std::string text = "<key>" + name + "</key><array>";
  for (const std::string& value : values) text += "<string>" + value + "</string>";
  return text + "</array>";
}

std::string nameAndPath(const std::string& name, const std::string& path) {
  return attribute(kName, {name}) + attribute(kPath, {path});
}

std::string binaryRecord(const std::map<std::string, std::vector<std::string>>& attributes) {
  std::string list = "bplist00";
  std::string offsets;
  size_t count = 0;
  // Adds an object and returns the reference to it: its number, in one byte.
  const auto add = [&](unsigned kind, size_t length, const std::string& content) {
    offsets += {static_cast<char>(list.size() >> 8U), static_cast<char>(list.size())};
    if (length < 15) {
      list += static_cast<char>(kind << 4U | length);
    } else {
      list += {static_cast<char>(kind << 4U | 0xFU), 0x10, static_cast<char>(length)};
    }
    list += content;
    return static_cast<char>(count++);
  };
  std::string keys;
  std::string arrays;
  for (const auto& [name, values] : attributes) {
    std::string elements;
    for (const std::string& value : values) elements += add(0x5, value.size(), value);
    keys += add(0x5, name.size(), name);
    arrays += add(0xA, values.size(), elements);
  }
  const char root = add(0xD, attributes.size(), keys + arrays);
  const size_t table = list.size();
  std::string trailer(32, '\0');
  trailer[6] = 2;
  trailer[7] = 1;
  trailer[15] = static_cast<char>(count);
  trailer[23] = root;
  trailer[30] = static_cast<char>(table >> 8U);
  trailer[31] = static_cast<char>(table);
  return list + offsets + trailer;
}

std::string row(std::string name, std::string path, const std::string& webdav) {
  if (name.size() < 35) name.resize(35, ' ');
  if (path.size() < 35) path.resize(35, ' ');
  return name + " " + path + " " + webdav + (webdav == "Yes" ? "    \n" : "     \n");
}
