// The answer to a PROPFIND (RFC 4918, sections 9.1 and 13), a response at a time.
#pragma once

#include <array>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/debian/mod_tessel/property_request.h"
#include "host/debian/mod_tessel/property_values.h"
#include "platform/xml/element_check.h"

namespace tessel {

// What clients have set stands in it only as far as it is well-formed by itself, which older
// versions have not asked of it, and each property once: one of a file itself hides one of a
// client. Owners of locks are left out beyond this many bytes, for a lock on a folder would repeat
// its own with everything in it (RFC 4918, section 14.1: an owner may be missing).
inline constexpr std::size_t kMostBytesOfOwners = 1048576;

inline constexpr const char* kApacheProperties = "http://apache.org/dav/props/";
inline constexpr const char* kMicrosoftProperties = "urn:schemas-microsoft-com:";

class PropertyAnswer {
 public:
  // Answers at this time, by which the rest of a lock's is counted.
  PropertyAnswer(const PropertyRequest& request, std::time_t now);

  // What an item's answer will look at, so that the rest need not be found out.
  bool needsProperties() const { return needsProperties_; }
  bool needsLocks() const { return needsLocks_; }
  bool needsContentType() const { return needsContentType_; }
  bool needsSpace() const { return needsSpace_; }

  void appendStart(std::string& text) const;
  // Items that are alike but for their values take a fraction of the time after the first.
  void appendResponse(std::string& text, const ListedItem& item);
  // For an item that is there and cannot be looked at; a status line as in "403 Forbidden".
  static void appendFailure(std::string& text, std::string_view href, std::string_view status);
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
    std::array<char, kMostShortBytes> text{};
    size_t size = 0;  // 0 before the first
  };

  struct WrittenType {
    std::string type, escaped;
  };

  // Where a value stands in the response at hand.
  struct WrittenValue {
    LiveProperty property;
    size_t start, end;
  };

  // A response without its values, for all items that have the same properties; it begins behind
  // the item's href.
  struct Pattern {
    struct Gap {
      LiveProperty property;
      size_t position;
    };
    std::string text;  // empty before the first such item; ends with room to read in steps
    size_t size = 0;   // without that
    std::vector<Gap> gaps;
  };

  bool needs(LiveProperty property) const;
  bool appendByPattern(std::string& text, const ListedItem& item);
  Pattern& patternFor(const ListedItem& item);
  void learn(Pattern& pattern, const ListedItem& item);
  // What stands behind an item's href.
  void appendProperties(std::string& text, const ListedItem& item);
  // Writes the value of a property that the item has, and returns its end.
  char* writeKnown(char* end, LiveProperty property, const ListedItem& item);
  // An element with the value of a property; false, and nothing, when the item has none.
  bool appendLive(std::string& text, std::string_view start, std::string_view end,
                  LiveProperty property, const ListedItem& item);
  void appendWanted(const Wanted& wanted, const ListedItem& item, std::string& text);
  void appendLocks(std::string& text, const ListedItem& item);
  void appendAll(std::string& text, const ListedItem& item);

  PropertyRequest::Kind kind_;
  std::time_t now_;
  bool needsProperties_ = false;
  bool needsLocks_ = false;
  bool needsContentType_ = false;
  bool needsSpace_ = false;
  std::vector<Wanted> wanted_;
  std::vector<std::string> nameSpaces_;  // that are declared as n0, n1, ...
  ElementCheck check_;
  std::size_t bytesOfOwners_ = 0;
  std::string lastOwner_;  // that was found well-formed: a lock on a folder is one of each entry's
  // Of the item at hand: what it lacks, and what clients have set, in the order of names; where all
  // are told, only those that are.
  std::string missing_;
  std::vector<const Property*> index_;
  std::vector<WrittenValue> values_;
  std::array<Pattern, 32> patterns_;
  // The last ones: the files of a folder often have them in common.
  WrittenDate created_;
  WrittenDate modified_;
  WrittenType type_;
};

}  // namespace tessel
