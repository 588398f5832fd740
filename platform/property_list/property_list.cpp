#include "platform/property_list/property_list.h"

#include <algorithm>
#include <utility>

#include "platform/files/file_manager.h"
#include "platform/property_list/binary_reader.h"
#include "platform/property_list/bounds.h"
#include "platform/property_list/xml_reader.h"
#include "platform/property_list/xml_writer.h"

namespace tessel {

namespace {

using Node = PropertyListNode;

Error malformed(const std::string& reason) {
  return Error{"is no property list with a dictionary as its root (" + reason + ")"};
}

auto hasKey(const std::string& key) {
  return [&key](const Node::Entry& entry) { return entry.key == key; };
}

}  // namespace

PropertyList::PropertyList() : dictionary_{Node::Dictionary{}} {}

Result<PropertyList> PropertyList::load(const std::string& path) {
  const Result<std::string> bytes = FileManager().readFile(path, kLargestPropertyList);
  if (!bytes) return bytes.error();
  Result<PropertyList> list = parse(*bytes);
  if (!list) return Error{path + " " + list.error().description};
  return list;
}

Result<PropertyList> PropertyList::parse(std::string_view bytes) {
  if (bytes.size() > kLargestPropertyList) return malformed("too large");
  Result<Node> root =
      isBinaryPropertyList(bytes) ? readBinaryPropertyList(bytes) : readXMLPropertyList(bytes);
  if (!root) return malformed(root.error().description);
  if (!std::holds_alternative<Node::Dictionary>(root->content)) {
    return malformed("its root is of another type");
  }
  return PropertyList(std::move(*root));
}

std::optional<PropertyListValue> PropertyList::value(const std::string& key) const {
  const auto found = std::find_if(entries().rbegin(), entries().rend(), hasKey(key));
  if (found == entries().rend()) return std::nullopt;
  return PropertyListValue(found->value);
}

PropertyListValue PropertyList::root() const { return PropertyListValue(dictionary_); }

void PropertyList::setString(const std::string& key, const std::string& text) { set(key, {text}); }

void PropertyList::setStrings(const std::string& key, const std::vector<std::string>& texts) {
  Node::Array array;
  for (const std::string& text : texts) array.elements.push_back({text});
  set(key, {std::move(array)});
}

void PropertyList::setValue(const std::string& key, const PropertyListValue& value) {
  set(key, value.node());
}

void PropertyList::remove(const std::string& key) { std::erase_if(entries(), hasKey(key)); }

Result<std::string> PropertyList::xml() const { return writeXMLPropertyList(dictionary_); }

std::vector<Node::Entry>& PropertyList::entries() {
  return std::get<Node::Dictionary>(dictionary_.content).entries;
}

const std::vector<Node::Entry>& PropertyList::entries() const {
  return std::get<Node::Dictionary>(dictionary_.content).entries;
}

void PropertyList::set(const std::string& key, Node value) {
  const auto first = std::find_if(entries().begin(), entries().end(), hasKey(key));
  if (first == entries().end()) {
    entries().push_back({key, std::move(value)});
    return;
  }
  first->value = std::move(value);
  entries().erase(std::remove_if(first + 1, entries().end(), hasKey(key)), entries().end());
}

}  // namespace tessel
