// What a property list is made of: a tree of values, and the readings of one value. A value of the
// wrong type is read through the host's general coercions, never refused.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace tessel {

// One value with all that is below it. Null, wide integers, sets and UIDs come from binary lists
// alone; XML has no form for them.
struct PropertyListNode {
  struct Null {};
  struct Integer {  // within 64 bits, signed or unsigned
    std::uint64_t magnitude = 0;
    bool negative = false;
  };
  struct WideInteger {  // beyond 64 bits; two's complement, the most significant byte first
    std::array<unsigned char, 16> bytes{};
  };
  struct Date {
    double seconds = 0;  // since the beginning of 2001, UTC
  };
  struct Data {
    std::string bytes;
  };
  struct UID {
    std::uint64_t number = 0;
  };
  struct Array {
    std::vector<PropertyListNode> elements;
    bool isSet = false;
  };
  struct Entry;
  struct Dictionary {
    std::vector<Entry> entries;  // as they stand in the list; a key may occur twice
  };

  std::variant<Null, std::string, Integer, WideInteger, double, bool, Date, Data, UID, Array,
               Dictionary>
      content;
};

struct PropertyListNode::Entry {
  std::string key;
  PropertyListNode value;
};

// A look at one value of a list, which must outlive it.
class PropertyListValue {
 public:
  using Elements = std::vector<PropertyListValue>;
  using Entries = std::vector<std::pair<const std::string&, PropertyListValue>>;

  explicit PropertyListValue(const PropertyListNode& node) : node_(&node) {}

  // The text of a string; none for every other type.
  std::optional<std::string> string() const;

  // A boolean is itself, a number true when it is not zero, a string true when it says yes (see
  // saysYes); every other type is false.
  bool boolean() const;

  // The integer part of a number, the leading integer of a string (see leadingInteger), 1 for true;
  // 0 for every other type. Clamped to 32 bits.
  std::int32_t integer() const;

  // The elements of an array or set in order; none for every other type.
  std::optional<Elements> elements() const;

  // The entries of a dictionary in byte order of their keys, each key once: of two entries with one
  // key the last counts. None for every other type.
  std::optional<Entries> entries() const;

  // The bytes of a data value; none for every other type.
  std::optional<std::string> data() const;

  // A scalar that is neither string nor data as text: an integer in decimal (beyond 64 bits as 0x
  // and its 128 bits in hexadecimal), a real as realText, a boolean as 1 or 0, a date as dateText,
  // a UID as its number, null as "null".
  std::string scalarText() const;

  const PropertyListNode& node() const { return *node_; }

 private:
  const PropertyListNode* node_;
};

}  // namespace tessel
