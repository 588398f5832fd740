// The values of the properties that come from a file itself (RFC 4918, section 15; RFC 4331).
#pragma once

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "host/debian/mod_tessel/etag.h"
#include "host/debian/mod_tessel/files/space.h"
#include "host/debian/mod_tessel/files/status.h"
#include "host/debian/mod_tessel/state/state.h"

namespace tessel {

// One file or folder, by what an answer may say of it.
struct ListedItem {
  std::string_view href;  // percent-encoded
  bool isCollection = false;
  bool isFile = true;      // false: a name that is locked and nothing else
  bool isVirtual = false;  // a collection that is no folder on disk: `status` has its time only
  FileStatus status = {};
  std::string_view contentType = {};                 // empty: unknown
  std::optional<std::string_view> displayName = {};  // left out where XML cannot hold it
  std::optional<Space> space = {};
  std::span<const Property> properties = {};  // that clients have set
  std::span<const Lock* const> locks = {};
};

// Properties that come from the file itself.
enum class LiveProperty {
  ResourceType,
  CreationDate,
  ContentLength,
  LastModified,
  ETag,
  Executable,
  SupportedLock,
  LockDiscovery,
  ContentType,
  DisplayName,
  // Not among all properties, only where asked for by name (RFC 4331, section 2) and among names.
  QuotaAvailable,
  QuotaUsed,
  Win32LastModified,
};

bool hasValue(LiveProperty property, const ListedItem& item);

// Appends the content of a property's element, but for locks. False, and nothing, when the item has
// no such one.
bool appendValue(std::string& text, LiveProperty property, const ListedItem& item);
// Appends a lock as LockDiscovery tells of it. Its owner must be well-formed by itself to be told.
void appendLock(std::string& text, const Lock& lock, bool withOwner, std::time_t now);

// Writes text where there is room for it, and returns its end.
inline char* write(char* end, std::string_view text) {
  return std::copy(text.begin(), text.end(), end);
}
// The same with a value that is a number, a time or the like, and takes at most kMostShortBytes.
// The item must have it. Writes nothing for other properties.
char* writeShort(char* end, LiveProperty property, const ListedItem& item);
constexpr std::size_t kMostShortBytes = kMostETagBytes;

// As the text of an element. It is not fit for an attribute, where quotes, tabs and newlines mean
// something else.
void appendEscapedText(std::string& text, std::string_view bytes);

// When the file came into being, in nanoseconds since 1970, as near as the file system tells.
std::int64_t creationOf(const FileStatus& status);

}  // namespace tessel
