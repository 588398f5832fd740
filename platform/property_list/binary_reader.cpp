#include "platform/property_list/binary_reader.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/property_list/bounds.h"

namespace tessel {

namespace {

using Node = PropertyListNode;

constexpr std::string_view kMagic = "bplist";
constexpr std::string_view kHeader = "bplist00";
constexpr size_t kTrailerSize = 32;

enum Kind : unsigned {
  kSingleton = 0x0,
  kInteger = 0x1,
  kReal = 0x2,
  kDate = 0x3,
  kData = 0x4,
  kASCII = 0x5,
  kUTF16 = 0x6,
  kUID = 0x8,
  kArray = 0xA,
  kSet = 0xC,
  kDictionary = 0xD,
};

// Halves of a pair that stand alone are encoded like any other, which is no UTF-8.
void addUTF8(std::uint32_t character, std::string& text) {
  const auto add = [&text](std::uint32_t byte) { text += static_cast<char>(byte); };
  if (character < 0x80) return add(character);
  if (character < 0x800) {
    add(0xC0U | (character >> 6U));
  } else {
    if (character < 0x10000) {
      add(0xE0U | (character >> 12U));
    } else {
      add(0xF0U | (character >> 18U));
      add(0x80U | ((character >> 12U) & 0x3FU));
    }
    add(0x80U | ((character >> 6U) & 0x3FU));
  }
  add(0x80U | (character & 0x3FU));
}

class Reader {
 public:
  explicit Reader(std::string_view bytes) : bytes_(bytes) {}

  Result<Node> read() {
    if (bytes_.size() < kHeader.size() + kTrailerSize || !bytes_.starts_with(kHeader)) {
      return Error{"no binary list of a known version"};
    }
    const size_t trailer = bytes_.size() - kTrailerSize;
    offsetSize_ = byteAt(trailer + 6);
    referenceSize_ = byteAt(trailer + 7);
    const std::uint64_t count = number(trailer + 8, 8);
    const std::uint64_t root = number(trailer + 16, 8);
    const std::uint64_t table = number(trailer + 24, 8);
    if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8 ||
        table > trailer || count > (trailer - table) / offsetSize_ || root >= count) {
      return Error{"a trailer that does not fit"};
    }
    objectsEnd_ = trailer;
    offsetTable_ = table;
    measured_.resize(count);
    if (!measure(root, 0)) return Error{"an object that is malformed, too deep or too costly"};
    return build(root);
  }

 private:
  // The tree holds a copy of a value for each reference to it. A copy costs this for its node, and
  // its bytes besides.
  static constexpr std::uint64_t kValueCost = 64;
  static constexpr std::uint64_t kLargestCost = 16 * kLargestPropertyList;

  struct Measure {
    std::uint32_t cost = 0;    // 0: not measured yet
    std::uint32_t height = 0;  // containers on the longest way down, this one included
  };

  struct Object {
    unsigned kind = 0;
    std::uint64_t count = 0;    // bytes, characters, elements or entries
    std::uint64_t content = 0;  // where it begins
  };

  unsigned byteAt(std::uint64_t at) const { return static_cast<unsigned char>(bytes_[at]); }

  // Big-endian; all of its bytes must be there.
  std::uint64_t number(std::uint64_t at, size_t size) const {
    std::uint64_t value = 0;
    for (size_t i = 0; i < size; ++i) value = (value << 8U) | byteAt(at + i);
    return value;
  }

  // Whether so many units of this size stand at the offset.
  bool holds(std::uint64_t at, std::uint64_t count, std::uint64_t size) const {
    return at <= objectsEnd_ && count <= (objectsEnd_ - at) / size;
  }

  std::optional<Object> objectNumbered(std::uint64_t index) const {
    const std::uint64_t at = number(offsetTable_ + index * offsetSize_, offsetSize_);
    if (!holds(at, 1, 1)) return std::nullopt;
    Object object{byteAt(at) >> 4U, byteAt(at) & 0xFU, at + 1};
    switch (object.kind) {
      case kSingleton:
        if (object.count != 0x0 && object.count != 0x8 && object.count != 0x9) return std::nullopt;
        return object;
      case kInteger:
        if (object.count > 4 || !holds(object.content, 1, 1U << object.count)) return std::nullopt;
        object.count = 1U << object.count;
        return object;
      case kReal:
      case kDate:
        if (object.count > 3 || object.count < (object.kind == kReal ? 2 : 3)) return std::nullopt;
        object.count = 1U << object.count;
        break;
      case kUID:
        object.count += 1;
        if (object.count > 8) return std::nullopt;
        break;
      default:
        if (object.count == 0xF && !takeCount(object)) return std::nullopt;
    }
    const auto size = unitSize(object.kind);
    return size && holds(object.content, object.count, *size) ? std::optional(object)
                                                              : std::nullopt;
  }

  // A count of 15 or more follows as an integer of 1, 2, 4 or 8 bytes.
  bool takeCount(Object& object) const {
    if (!holds(object.content, 1, 1)) return false;
    const unsigned marker = byteAt(object.content);
    const size_t size = 1UL << (marker & 0x3U);
    if ((marker & 0xFCU) != (kInteger << 4U) || !holds(object.content + 1, 1, size)) return false;
    object.count = number(object.content + 1, size);
    object.content += 1 + size;
    return true;
  }

  std::optional<std::uint64_t> unitSize(unsigned kind) const {
    switch (kind) {
      case kReal:
      case kDate:
      case kUID:
      case kData:
      case kASCII:
        return 1;
      case kUTF16:
        return 2;
      case kArray:
      case kSet:
        return referenceSize_;
      case kDictionary:
        return 2 * referenceSize_;
      default:
        return std::nullopt;
    }
  }

  // None when the value is malformed, too deep or too costly. A cycle is too deep.
  std::optional<Measure> measure(std::uint64_t index, size_t depth) {
    if (index >= measured_.size()) return std::nullopt;
    if (measured_[index].cost == 0) {
      const auto object = objectNumbered(index);
      const auto result = object ? measureObject(*object, depth) : std::nullopt;
      if (!result) return std::nullopt;
      measured_[index] = *result;
    }
    const Measure& result = measured_[index];
    if (depth + result.height > kDeepestPropertyList) return std::nullopt;
    return result;
  }

  std::optional<Measure> measureObject(const Object& object, size_t depth) {
    const bool isDictionary = object.kind == kDictionary;
    if (!isDictionary && object.kind != kArray && object.kind != kSet) {
      return measureOf(kValueCost + object.count * *unitSizeOrOne(object.kind), 0);
    }
    if (depth >= kDeepestPropertyList) return std::nullopt;
    std::uint64_t cost = kValueCost;
    std::uint32_t height = 1;
    const std::uint64_t references = object.count * (isDictionary ? 2 : 1);
    for (std::uint64_t i = 0; i < references; ++i) {
      const std::uint64_t index = referenceAt(object, i);
      const auto child = measure(index, depth + 1);
      if (!child || (isDictionary && i < object.count && !isText(index))) return std::nullopt;
      cost += child->cost;
      height = std::max(height, child->height + 1);
      if (cost > kLargestCost) return std::nullopt;
    }
    return measureOf(cost, height);
  }

  std::optional<std::uint64_t> unitSizeOrOne(unsigned kind) const {
    return kind == kSingleton || kind == kInteger ? 1 : unitSize(kind);
  }

  static std::optional<Measure> measureOf(std::uint64_t cost, std::uint32_t height) {
    if (cost > kLargestCost) return std::nullopt;
    return Measure{static_cast<std::uint32_t>(cost), height};
  }

  std::uint64_t referenceAt(const Object& object, std::uint64_t i) const {
    return number(object.content + i * referenceSize_, referenceSize_);
  }

  bool isText(std::uint64_t index) const {
    const unsigned kind = objectNumbered(index)->kind;
    return kind == kASCII || kind == kUTF16;
  }

  // Of what was measured.
  Node build(std::uint64_t index) const {
    const Object object = *objectNumbered(index);
    switch (object.kind) {
      case kSingleton:
        return object.count == 0 ? Node{Node::Null{}} : Node{object.count == 0x9};
      case kInteger:
        return integer(object);
      case kReal:
        return {real(object)};
      case kDate:
        return {Node::Date{real(object)}};
      case kData:
        return {Node::Data{std::string(bytes_.substr(object.content, object.count))}};
      case kUID:
        return {Node::UID{number(object.content, object.count)}};
      case kDictionary: {
        Node::Dictionary dictionary;
        dictionary.entries.reserve(object.count);
        for (std::uint64_t i = 0; i < object.count; ++i) {
          const Object key = *objectNumbered(referenceAt(object, i));
          dictionary.entries.push_back({text(key), build(referenceAt(object, object.count + i))});
        }
        return {std::move(dictionary)};
      }
      case kArray:
      case kSet: {
        Node::Array array{{}, object.kind == kSet};
        array.elements.reserve(object.count);
        for (std::uint64_t i = 0; i < object.count; ++i) {
          array.elements.push_back(build(referenceAt(object, i)));
        }
        return {std::move(array)};
      }
      default:
        return {text(object)};
    }
  }

  // Of eight bytes and more it has a sign.
  Node integer(const Object& object) const {
    constexpr size_t kWord = 8;
    if (object.count < kWord) return {Node::Integer{number(object.content, object.count)}};
    const std::uint64_t low = number(object.content + object.count - kWord, kWord);
    const bool lowIsNegative = low >> 63U != 0;
    std::uint64_t high = lowIsNegative ? ~0ULL : 0;
    if (object.count > kWord) high = number(object.content, kWord);
    if (high == 0) return {Node::Integer{low}};
    if (high == ~0ULL && lowIsNegative) return {Node::Integer{~low + 1, true}};
    Node::WideInteger wide;
    std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(object.content), wide.bytes.size(),
                wide.bytes.begin());
    return {wide};
  }

  double real(const Object& object) const {
    if (object.count == sizeof(float)) {
      return std::bit_cast<float>(static_cast<std::uint32_t>(number(object.content, object.count)));
    }
    return std::bit_cast<double>(number(object.content, object.count));
  }

  std::string text(const Object& object) const {
    // Some writers put UTF-8 into what should be ASCII.
    if (object.kind == kASCII) return std::string(bytes_.substr(object.content, object.count));
    std::string text;
    text.reserve(object.count);
    for (std::uint64_t i = 0; i < object.count; ++i) {
      std::uint64_t unit = number(object.content + 2 * i, 2);
      const bool isFirstHalf = unit >= 0xD800 && unit < 0xDC00;
      if (isFirstHalf && i + 1 < object.count) {
        const std::uint64_t next = number(object.content + 2 * i + 2, 2);
        if (next >= 0xDC00 && next < 0xE000) {
          unit = 0x10000 + ((unit - 0xD800) << 10U) + (next - 0xDC00);
          ++i;
        }
      }
      addUTF8(static_cast<std::uint32_t>(unit), text);
    }
    return text;
  }

  std::string_view bytes_;
  size_t offsetSize_ = 0;
  size_t referenceSize_ = 0;
  std::uint64_t objectsEnd_ = 0;
  std::uint64_t offsetTable_ = 0;
  std::vector<Measure> measured_;
};

}  // namespace

bool isBinaryPropertyList(std::string_view bytes) { return bytes.starts_with(kMagic); }

Result<PropertyListNode> readBinaryPropertyList(std::string_view bytes) {
  return Reader(bytes).read();
}

}  // namespace tessel
