// Property lists whose root is a dictionary with text keys: XML or binary in, XML out. What the
// program does not touch survives a rewrite with its type and value. Values that have the wrong
// type are read through the host's general coercions, never refused.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/base/result.h"

namespace tessel {

// One value of a list, which must outlive it.
class PropertyListValue {
 public:
  explicit PropertyListValue(void* value) : node(value) {}

  // The text of a string; none for every other type.
  std::optional<std::string> string() const;

  // A boolean is itself, a number true when it is not zero, a string true when it says yes (see
  // saysYes); every other type is false.
  bool boolean() const;

  // The integer part of a number, the leading integer of a string (see leadingInteger), 1 for true;
  // 0 for every other type. Clamped to 32 bits.
  std::int32_t integer() const;

  // The elements of an array in order; none for every other type.
  std::optional<std::vector<PropertyListValue>> elements() const;

  // The entries of a dictionary in byte order of their keys; none for every other type.
  std::optional<std::map<std::string, PropertyListValue>> entries() const;

  // The bytes of a data value; none for every other type.
  std::optional<std::string> data() const;

  // A scalar that is neither string nor data as text: an integer in decimal, a real in the fewest
  // digits that give it back, a boolean as 1 or 0, a date as "YYYY-MM-DD HH:MM:SS +0000" (UTC).
  std::string scalarText() const;

 private:
  friend class PropertyList;

  // Whether no dictionary in it has a key twice, of which the library takes the first from a binary
  // list and the last from XML, and no date lies outside the years 1 to 9999.
  bool survivesRewriting() const;

  void* node;  // plist_t
};

class PropertyList {
 public:
  // An empty dictionary.
  PropertyList();

  // Reads the dictionary in a file of at most 16 MiB, nested no deeper than 512. The error says
  // whether the file cannot be read or is malformed; a root of another type is malformed.
  static Result<PropertyList> load(const std::string& path);

  // The same from bytes.
  static Result<PropertyList> parse(std::string_view bytes);

  // The value under the key, valid until the list changes; none when there is none.
  std::optional<PropertyListValue> value(const std::string& key) const;

  // The root, for reading it as a whole.
  PropertyListValue root() const;

  // Stores a text, an array of texts, all of which must be UTF-8, or a copy of a value of any list.
  void setString(const std::string& key, const std::string& text);
  void setStrings(const std::string& key, const std::vector<std::string>& texts);
  void setValue(const std::string& key, const PropertyListValue& value);
  void remove(const std::string& key);

  // The list as XML text. An error when XML cannot give the list back: data takes more room there
  // than in a binary list, and may exceed what load() takes.
  Result<std::string> xml() const;

 private:
  using Root = std::unique_ptr<void, void (*)(void*)>;
  explicit PropertyList(Root root) : dictionary(std::move(root)) {}

  Root dictionary;  // plist_t
};

}  // namespace tessel
