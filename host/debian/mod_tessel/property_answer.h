// The answer to a PROPFIND (RFC 4918, sections 9.1 and 13), a response at a time.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/debian/mod_tessel/files/space.h"
#include "host/debian/mod_tessel/files/status.h"
#include "host/debian/mod_tessel/property_request.h"
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
  // Not among all properties, only where asked for by name (RFC 4331, section 2).
  QuotaAvailable,
  QuotaUsed,
  Win32LastModified,
};

inline constexpr const char* kApacheProperties = "http://apache.org/dav/props/";
inline constexpr const char* kMicrosoftProperties = "urn:schemas-microsoft-com:";

// Appends the content of a property's element. False, and nothing, when the item has no such one.
bool appendValue(std::string& text, LiveProperty property, const ListedItem& item, std::time_t now);

class PropertyAnswer {
 public:
  // Answers at this time, by which the rest of a lock's is counted.
  PropertyAnswer(const PropertyRequest& request, std::time_t now);

  // What an item's answer will look at, so that the rest need not be found out.
  bool needsProperties() const { return needsProperties_; }
  bool needsLocks() const { return needs(LiveProperty::LockDiscovery); }
  bool needsContentType() const { return needs(LiveProperty::ContentType); }
  bool needsSpace() const {
    return needs(LiveProperty::QuotaAvailable) || needs(LiveProperty::QuotaUsed);
  }

  void appendStart(std::string& text) const;
  void appendResponse(std::string& text, const ListedItem& item);
  static void appendEnd(std::string& text);

 private:
  struct Wanted {
    PropertyName name;
    std::optional<LiveProperty> live;
    std::string tag;              // with prefix, without brackets
    std::string_view start, end;  // of a live one's element
  };

  struct WrittenDate {
    std::int64_t second = 0;
    std::string text;  // empty before the first
  };

  bool needs(LiveProperty property) const;
  // An element with the value of a property; false, and nothing, when the item has none.
  bool appendLive(std::string& text, std::string_view start, std::string_view end,
                  LiveProperty property, const ListedItem& item);
  void appendWanted(const Wanted& wanted, const ListedItem& item, std::string& text);
  void appendAll(std::string& text, const ListedItem& item);

  PropertyRequest::Kind kind_;
  std::time_t now_;
  bool needsProperties_ = false;
  std::vector<Wanted> wanted_;
  std::vector<std::string> nameSpaces_;  // that are declared as n0, n1, ...
  // Of the item at hand: what it lacks, and what clients have set, in the order of names.
  std::string missing_;
  std::vector<const Property*> index_;
  // The last dates: the files of a folder often have one in common.
  WrittenDate created_;
  WrittenDate modified_;
};

}  // namespace tessel
