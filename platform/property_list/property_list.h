// Property lists whose root is a dictionary with text keys: XML or binary in, XML out. What the
// program does not touch comes back from a rewrite as the same values in the same order, or the
// rewrite is refused.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/base/result.h"
#include "platform/property_list/value.h"

namespace tessel {

class PropertyList {
 public:
  // An empty dictionary.
  PropertyList();

  // Reads the dictionary in a regular file of at most 16 MiB, nested no deeper than 512. The error
  // says whether the file cannot be read or is malformed; a root of another type is malformed.
  static Result<PropertyList> load(const std::string& path);

  // The same from bytes.
  static Result<PropertyList> parse(std::string_view bytes);

  // The value under the key, valid until the list changes; none when there is none. Of two values
  // under one key the last counts, as it does for other readers.
  std::optional<PropertyListValue> value(const std::string& key) const;

  // The root, for reading it as a whole.
  PropertyListValue root() const;

  // Stores a text, an array of texts, or a copy of a value of any list, in the place of what stands
  // under the key, or else at the end.
  void setString(const std::string& key, const std::string& text);
  void setStrings(const std::string& key, const std::vector<std::string>& texts);
  void setValue(const std::string& key, const PropertyListValue& value);
  void remove(const std::string& key);

  // The list as XML text. An error, which says why, when XML cannot give the list back: it holds
  // text that is not UTF-8 or has control characters, or a value that only binary lists can have,
  // or it would be larger or deeper than what load() takes.
  Result<std::string> xml() const;

 private:
  explicit PropertyList(PropertyListNode dictionary) : dictionary_(std::move(dictionary)) {}

  std::vector<PropertyListNode::Entry>& entries();
  const std::vector<PropertyListNode::Entry>& entries() const;
  void set(const std::string& key, PropertyListNode value);

  PropertyListNode dictionary_;
};

}  // namespace tessel
