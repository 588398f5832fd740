#include "platform/property_list/bounds.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace tessel {

namespace {

constexpr std::string_view kBinaryMagic = "bplist";

// Walks the tags of an XML property list (plist(5)): tags nest, a dictionary alternates keys and
// values, there is one root, and nothing stands behind it.
class XMLScanner {
 public:
  explicit XMLScanner(std::string_view bytes) : rest(bytes) {}

  bool scan() {
    // No XML has a NUL character; the library would make up what follows it.
    if (rest.find('\0') != std::string_view::npos) return false;
    while (!rest.empty()) {
      if (!takeText() || (!rest.empty() && !takeMarkup())) return false;
    }
    return open.empty() && rootSeen;
  }

 private:
  struct Element {
    std::string_view name;
    bool keyPending = false;  // in a dictionary: a key was read and its value was not
    bool filled = false;      // in <plist>: its one value was read
  };

  static bool isContainer(std::string_view name) {
    return name == "plist" || name == "dict" || name == "array";
  }

  static bool isLeaf(std::string_view name) {
    static constexpr std::array<std::string_view, 8> kLeaves{"string", "key",  "integer", "real",
                                                             "date",   "data", "true",    "false"};
    return std::find(std::begin(kLeaves), std::end(kLeaves), name) != std::end(kLeaves);
  }

  bool insideLeaf() const { return !open.empty() && isLeaf(open.back().name); }

  // Text up to the next tag: only scalar values may hold any.
  bool takeText() {
    const std::string_view text = rest.substr(0, rest.find('<'));
    rest.remove_prefix(text.size());
    return insideLeaf() || text.find_first_not_of(" \t\r\n") == std::string_view::npos;
  }

  bool takeMarkup() {
    if (rest.starts_with("<!--")) return skipPast("-->", 4);
    if (rest.starts_with("<![CDATA[")) return insideLeaf() && skipPast("]]>", 9);
    if (insideLeaf() && !rest.starts_with("</")) return false;
    if (rest.starts_with("<?")) return skipPast("?>", 2);
    if (rest.starts_with("<!")) return takeDocumentType();
    return takeTag();
  }

  bool skipPast(std::string_view end, size_t from) {
    const size_t found = rest.find(end, from);
    if (found == std::string_view::npos) return false;
    rest.remove_prefix(found + end.size());
    return true;
  }

  // A document type is skipped unless it brings declarations of its own.
  bool takeDocumentType() {
    const size_t end = rest.find_first_of("[>");
    if (!rest.starts_with("<!DOCTYPE") || rootSeen || end == std::string_view::npos ||
        rest[end] == '[') {
      return false;
    }
    rest.remove_prefix(end + 1);
    return true;
  }

  bool takeTag() {
    const size_t end = rest.find('>');
    if (end == std::string_view::npos) return false;
    std::string_view tag = rest.substr(1, end - 1);
    rest.remove_prefix(end + 1);

    const bool closing = tag.starts_with('/');
    const bool empty = !closing && tag.ends_with('/');
    if (closing) tag.remove_prefix(1);
    if (empty) tag.remove_suffix(1);
    const std::string_view name = tag.substr(0, tag.find_first_of(" \t\r\n"));
    const std::string_view attributes = tag.substr(name.size());
    if (name != "plist" && attributes.find_first_not_of(" \t\r\n") != std::string_view::npos) {
      return false;
    }
    if (closing) return close(name);
    return begin(name) && (!empty || close(name));
  }

  bool begin(std::string_view name) {
    if (!isContainer(name) && !isLeaf(name)) return false;
    if (open.empty()) {
      if (rootSeen) return false;
      rootSeen = true;
    } else {
      Element& parent = open.back();
      if (name == "plist" || parent.filled) return false;
      if (parent.name == "plist") parent.filled = true;
      if (parent.name == "dict") {
        if ((name == "key") == parent.keyPending) return false;
        parent.keyPending = !parent.keyPending;
      }
    }
    open.push_back({name});
    // One more for <plist>, and one more for a scalar in the deepest container.
    return open.size() <= kDeepestPropertyList + 2;
  }

  bool close(std::string_view name) {
    if (open.empty() || open.back().name != name || open.back().keyPending) return false;
    if (name == "plist" && !open.back().filled) return false;
    if ((name == "dict" || name == "array") && depth() > kDeepestPropertyList) return false;
    open.pop_back();
    return true;
  }

  size_t depth() const { return open.size() - (open.front().name == "plist" ? 1 : 0); }

  std::string_view rest;
  std::vector<Element> open;
  bool rootSeen = false;
};

// Follows the references of a binary property list. Its layout: objects, a table of their offsets,
// and a trailer of 32 bytes that ends in the sizes of an offset and of a reference (a byte each),
// the number of objects, the number of the root and the table's offset (eight bytes each,
// big-endian).
class BinaryScanner {
 public:
  explicit BinaryScanner(std::string_view list) : bytes(list) {}

  bool scan() {
    if (bytes.size() < kHeaderSize + kTrailerSize) return false;
    const size_t trailer = bytes.size() - kTrailerSize;
    offsetSize = byteAt(trailer + 6);
    referenceSize = byteAt(trailer + 7);
    if (offsetSize < 1 || offsetSize > 8 || referenceSize < 1 || referenceSize > 8) return false;
    const std::uint64_t count = *number(trailer + 8, 8);
    const std::uint64_t root = *number(trailer + 16, 8);
    const std::uint64_t table = *number(trailer + 24, 8);
    if (table > trailer || count > (trailer - table) / offsetSize || root >= count) return false;
    offsetTable = table;
    measured.resize(count);
    return measure(root, 0).has_value();
  }

 private:
  static constexpr size_t kHeaderSize = 8;
  static constexpr size_t kTrailerSize = 32;
  // What a value costs once it is copied for every reference to it: so much for being there, and
  // its bytes. The bound lets every list through that XML of the largest size could spell out.
  static constexpr std::uint64_t kValueCost = 64;
  static constexpr std::uint64_t kLargestCost = 16 * kLargestPropertyList;

  struct Measure {
    std::uint64_t cost = 0;  // 0: not measured yet
    size_t height = 0;       // containers on the longest way down, this one included
  };

  struct Object {
    unsigned kind = 0;  // the marker's upper half
    std::uint64_t count = 0;
    std::uint64_t content = 0;  // where it begins
  };

  unsigned byteAt(std::uint64_t at) const { return static_cast<unsigned char>(bytes[at]); }

  std::optional<std::uint64_t> number(std::uint64_t at, size_t size) const {
    if (at > bytes.size() || size > bytes.size() - at) return std::nullopt;
    std::uint64_t value = 0;
    for (size_t i = 0; i < size; ++i) value = (value << 8U) | byteAt(at + i);
    return value;
  }

  std::optional<Object> objectAt(std::uint64_t at) const {
    if (at >= bytes.size()) return std::nullopt;
    Object object{byteAt(at) >> 4U, byteAt(at) & 0xFU, at + 1};
    if (object.count != 0xF || object.kind < 0x4) return object;
    // A count of 15 or more follows as an integer object of 1, 2, 4 or 8 bytes.
    const auto marker = number(object.content, 1);
    if (!marker || (*marker >> 4U) != 0x1 || (*marker & 0xFU) > 3) return std::nullopt;
    const size_t size = 1UL << (*marker & 0xFU);
    const auto count = number(object.content + 1, size);
    if (!count) return std::nullopt;
    object.count = *count;
    object.content += 1 + size;
    return object;
  }

  // None when the value is malformed, too deep or too costly. A cycle is too deep.
  std::optional<Measure> measure(std::uint64_t index, size_t depth) {
    if (index >= measured.size()) return std::nullopt;
    if (measured[index].cost == 0) {
      const auto offset = number(offsetTable + index * offsetSize, offsetSize);
      const auto object = offset ? objectAt(*offset) : std::nullopt;
      const auto result = object ? measureObject(*object, depth) : std::nullopt;
      if (!result) return std::nullopt;
      measured[index] = *result;
    }
    const Measure& result = measured[index];
    if (depth + result.height > kDeepestPropertyList || result.cost > kLargestCost) {
      return std::nullopt;
    }
    return result;
  }

  // Whether the object is no text, or one without NUL characters: the library ends the program when
  // a key has one, and cuts other texts off there.
  bool isWholeText(const Object& object) {
    constexpr unsigned kASCII = 0x5;
    constexpr unsigned kUTF16 = 0x6;
    if (object.kind != kASCII && object.kind != kUTF16) return true;
    const size_t width = object.kind == kUTF16 ? 2 : 1;
    if (object.content > bytes.size() || object.count > (bytes.size() - object.content) / width) {
      return false;
    }
    // Objects may share their bytes: so many are read at most.
    textRead += width * object.count;
    if (textRead > kLargestCost) return false;
    for (std::uint64_t i = 0; i < object.count; ++i) {
      if (number(object.content + i * width, width) == 0) return false;
    }
    return true;
  }

  std::optional<Measure> measureObject(const Object& object, size_t depth) {
    constexpr unsigned kArray = 0xA;
    constexpr unsigned kSet = 0xC;
    constexpr unsigned kDictionary = 0xD;
    if (object.kind != kArray && object.kind != kSet && object.kind != kDictionary) {
      if (object.count > bytes.size() || !isWholeText(object)) return std::nullopt;
      return Measure{kValueCost + object.count, 0};
    }
    const std::uint64_t perEntry = object.kind == kDictionary ? 2 : 1;
    if (depth >= kDeepestPropertyList || object.content > bytes.size() ||
        object.count > (bytes.size() - object.content) / referenceSize / perEntry) {
      return std::nullopt;
    }
    Measure sum{kValueCost, 1};
    for (std::uint64_t i = 0; i < object.count * perEntry; ++i) {
      const auto reference = number(object.content + i * referenceSize, referenceSize);
      const auto child = reference ? measure(*reference, depth + 1) : std::nullopt;
      if (!child) return std::nullopt;
      sum.cost += child->cost;
      sum.height = std::max(sum.height, child->height + 1);
      if (sum.cost > kLargestCost) return std::nullopt;
    }
    return sum;
  }

  std::string_view bytes;
  size_t offsetSize = 0;
  size_t referenceSize = 0;
  std::uint64_t offsetTable = 0;
  std::uint64_t textRead = 0;  // bytes
  std::vector<Measure> measured;
};

}  // namespace

bool isBinaryPropertyList(std::string_view bytes) { return bytes.starts_with(kBinaryMagic); }

bool isBoundedPropertyList(std::string_view bytes) {
  if (bytes.size() > kLargestPropertyList) return false;
  return isBinaryPropertyList(bytes) ? BinaryScanner(bytes).scan() : XMLScanner(bytes).scan();
}

}  // namespace tessel
