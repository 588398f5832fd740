#include "host/debian/tessel_host/granted_folders.h"

#include <algorithm>

#include "platform/base/text.h"
#include "platform/files/file_manager.h"
#include "platform/files/lock.h"
#include "platform/property_list/property_list.h"

namespace tessel {

namespace {

constexpr const char* kFile = "/var/lib/tessel/grants.plist";
constexpr const char* kLock = "/var/lib/tessel/.grants.lock";
constexpr const char* kFolders = "Folders";

}  // namespace

bool isBelow(const std::string& path, const std::string& folder) {
  return path.starts_with(folder == "/" ? folder : folder + "/");
}

Result<GrantedFolders> GrantedFolders::open() {
  auto lock = lockFile(kLock);
  if (!lock) return lock.error();
  GrantedFolders folders(*std::move(lock));
  if (FileManager().isAbsent(kFile)) return folders;
  const auto list = PropertyList::load(kFile);
  if (!list) return Error{std::string(kFile) + " " + list.error().description};
  const auto value = list->value(kFolders);
  const auto elements = value ? value->elements() : std::nullopt;
  for (const PropertyListValue& element : elements.value_or(PropertyListValue::Elements())) {
    if (const auto path = element.string()) folders.paths_.push_back(*path);
  }
  return folders;
}

bool GrantedFolders::has(const std::string& path) const {
  return std::find(paths_.begin(), paths_.end(), path) != paths_.end();
}

Status GrantedFolders::add(const std::string& path) {
  if (!isXMLText(path)) return Error{"its path is no UTF-8 or has control characters"};
  if (!has(path)) paths_.push_back(path);
  return save();
}

Status GrantedFolders::remove(const std::string& path) {
  std::erase(paths_, path);
  return save();
}

Status GrantedFolders::save() const {
  PropertyList list;
  list.setStrings(kFolders, paths_);
  const auto xml = list.xml();
  if (!xml) return xml.error();
  return FileManager().writeAtomically(kFile, *xml, FileManager::Attributes::KeepExisting);
}

}  // namespace tessel
