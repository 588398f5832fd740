#include "platform/property_list/xml_reader.h"

#include <expat.h>

#include <array>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/property_list/bounds.h"
#include "platform/property_list/scalar.h"

namespace tessel {

namespace {

using Node = PropertyListNode;

enum class Tag { List, Dictionary, Array, Key, String, Integer, Real, Date, Data, True, False };

std::optional<Tag> tagNamed(std::string_view name) {
  static constexpr std::array<std::pair<std::string_view, Tag>, 11> kTags{
      {{"key", Tag::Key},
       {"string", Tag::String},
       {"true", Tag::True},
       {"false", Tag::False},
       {"integer", Tag::Integer},
       {"array", Tag::Array},
       {"dict", Tag::Dictionary},
       {"data", Tag::Data},
       {"date", Tag::Date},
       {"real", Tag::Real},
       {"plist", Tag::List}}};
  for (const auto& [known, tag] : kTags) {
    if (known == name) return tag;
  }
  return std::nullopt;
}

bool isContainer(Tag tag) {
  return tag == Tag::List || tag == Tag::Dictionary || tag == Tag::Array;
}

// expat 2.9 has a second name for it and warns of the first.
std::uint64_t currentLine(XML_Parser parser) {
#if XML_MAJOR_VERSION > 2 || (XML_MAJOR_VERSION == 2 && XML_MINOR_VERSION >= 9)
  return XML_GetCurrentLineNumber64(parser);
#else
  return XML_GetCurrentLineNumber(parser);
#endif
}

// expat takes the unit after the first half of a surrogate pair for the second half, whatever it
// is, so that a text in UTF-16 could read as another one.
bool hasWholeSurrogatePairs(std::string_view bytes) {
  if (bytes.size() < 2) return true;
  const bool bigEndian = bytes.starts_with("\xFE\xFF") || bytes[0] == '\0';
  const bool littleEndian = bytes.starts_with("\xFF\xFE") || bytes[1] == '\0';
  if (!bigEndian && !littleEndian) return true;
  bool pending = false;
  for (size_t i = bigEndian ? 0 : 1; i < bytes.size(); i += 2) {
    const unsigned half = static_cast<unsigned char>(bytes[i]) & 0xFCU;
    if ((half == 0xDC) != pending) return false;
    pending = half == 0xD8;
  }
  return !pending;
}

// Takes what expat finds, tag by tag.
class Reader {
 public:
  explicit Reader(XML_Parser parser) : parser_(parser) {
    XML_SetUserData(parser, this);
    XML_SetElementHandler(
        parser,
        [](void* reader, const char* name, const char** /*attributes*/) {
          handle(reader, [name](Reader& self) { self.begin(name); });
        },
        [](void* reader, const char* name) {
          handle(reader, [name](Reader& self) { self.end(*tagNamed(name)); });
        });
    XML_SetCharacterDataHandler(parser, [](void* reader, const char* text, int length) {
      handle(reader, [text, length](Reader& self) {
        self.take({text, static_cast<size_t>(length)});
      });
    });
    XML_SetEntityDeclHandler(
        parser, [](void* reader, const char* /*name*/, int /*isParameter*/, const char* /*value*/,
                   int /*length*/, const char* /*base*/, const char* /*system*/,
                   const char* /*public*/, const char* /*notation*/) {
          handle(reader, [](Reader& self) { self.fail("an entity of its own"); });
        });
    // Defaults of attributes would be added to each of the tags.
    XML_SetAttlistDeclHandler(
        parser, [](void* reader, const char* /*element*/, const char* /*name*/,
                   const char* /*type*/, const char* /*value*/, int /*isRequired*/) {
          handle(reader, [](Reader& self) { self.fail("attributes of its own"); });
        });
    // With a document type that is not read, expat leaves out what it cannot know.
    XML_SetSkippedEntityHandler(
        parser, [](void* reader, const char* /*name*/, int /*isParameter*/) {
          handle(reader, [](Reader& self) { self.fail("an entity that nothing declares"); });
        });
  }

  Result<Node> read(std::string_view bytes) {
    const bool parsed =
        XML_Parse(parser_, bytes.data(), static_cast<int>(bytes.size()), XML_TRUE) == XML_STATUS_OK;
    if (outOfMemory_ || XML_GetErrorCode(parser_) == XML_ERROR_NO_MEMORY) throw std::bad_alloc();
    if (parsed && failure_ == nullptr) return std::move(root_);
    const std::uint64_t line = failure_ != nullptr ? failureLine_ : currentLine(parser_);
    const char* const reason =
        failure_ != nullptr ? failure_ : XML_ErrorString(XML_GetErrorCode(parser_));
    return Error{"line " + std::to_string(line) + ": " + reason};
  }

 private:
  // An array, a dictionary or the outermost tag that is not closed yet.
  struct Open {
    Tag tag;
    Node value;
    std::optional<std::string> key;  // in a dictionary: it was read and its value was not
    bool filled = false;             // in the outermost tag: its value was read
  };

  // No exception may pass through expat.
  template <typename Handler>
  static void handle(void* reader, Handler handler) {
    Reader& self = *static_cast<Reader*>(reader);
    if (self.failure_ != nullptr || self.outOfMemory_) return;
    try {
      handler(self);
    } catch (const std::bad_alloc&) {
      self.outOfMemory_ = true;
      XML_StopParser(self.parser_, XML_FALSE);
    }
  }

  void fail(const char* reason) {
    failure_ = reason;
    failureLine_ = currentLine(parser_);
    XML_StopParser(parser_, XML_FALSE);
  }

  void begin(std::string_view name) {
    const auto tag = tagNamed(name);
    if (!tag) return fail("a tag that property lists do not have");
    if (scalar_) return fail("a tag inside a scalar value");
    if (const char* const reason = misplaced(*tag)) return fail(reason);
    if (!isContainer(*tag)) {
      scalar_ = tag;
      text_.clear();
      return;
    }
    const size_t depth = open_.size() - (!open_.empty() && open_.front().tag == Tag::List ? 1 : 0);
    if (*tag != Tag::List && depth >= kDeepestPropertyList) return fail("nested too deep");
    Node value;
    if (*tag == Tag::Dictionary) value.content = Node::Dictionary{};
    if (*tag == Tag::Array) value.content = Node::Array{};
    open_.push_back({*tag, std::move(value), {}});
  }

  // Why the tag cannot begin here; null when it can.
  const char* misplaced(Tag tag) const {
    if (tag == Tag::List) return open_.empty() ? nullptr : "a list inside a list";
    const bool inDictionary = !open_.empty() && open_.back().tag == Tag::Dictionary;
    if (tag == Tag::Key && !inDictionary) return "a key outside a dictionary";
    if (inDictionary && (tag == Tag::Key) == open_.back().key.has_value()) {
      return tag == Tag::Key ? "a key without a value" : "a value without a key";
    }
    return !open_.empty() && open_.back().filled ? "more than one value" : nullptr;
  }

  void take(std::string_view text) {
    if (scalar_) {
      text_ += text;
    } else if (!withoutXMLSpace(text).empty()) {
      fail("text outside a scalar value");
    }
  }

  void end(Tag tag) {
    if (scalar_) {
      scalar_.reset();
      return endScalar(tag);
    }
    Open closed = std::move(open_.back());
    if (closed.key) return fail("a key without a value");
    if (tag == Tag::List && !closed.filled) return fail("no value");
    open_.pop_back();
    if (tag != Tag::List) add(std::move(closed.value));
  }

  void endScalar(Tag tag) {
    switch (tag) {
      case Tag::Key:
        open_.back().key = std::move(text_);
        return;
      case Tag::String:
        return add({std::move(text_)});
      case Tag::Integer:
        return addParsed(parseInteger(text_), "an integer that is none within 64 bits");
      case Tag::Real:
        return addParsed(parseReal(text_), "a real number that is none");
      case Tag::Date:
        return addParsed(parseDate(text_), "a date that is none");
      case Tag::Data:
        if (auto bytes = parseBase64(text_)) return add({Node::Data{std::move(*bytes)}});
        return fail("data that is no base64");
      default:
        if (!withoutXMLSpace(text_).empty()) return fail("a boolean with a text");
        return add({tag == Tag::True});
    }
  }

  template <typename Scalar>
  void addParsed(const std::optional<Scalar>& scalar, const char* reason) {
    if (!scalar) return fail(reason);
    add({*scalar});
  }

  void add(Node value) {
    if (open_.empty()) {
      root_ = std::move(value);
      return;
    }
    Open& parent = open_.back();
    if (parent.tag == Tag::List) {
      root_ = std::move(value);
      parent.filled = true;
    } else if (parent.tag == Tag::Array) {
      std::get<Node::Array>(parent.value.content).elements.push_back(std::move(value));
    } else {
      auto& entries = std::get<Node::Dictionary>(parent.value.content).entries;
      entries.push_back({std::move(*parent.key), std::move(value)});
      parent.key.reset();
    }
  }

  XML_Parser parser_;
  std::vector<Open> open_;
  std::optional<Tag> scalar_;  // the scalar value that is not closed yet
  std::string text_;           // what stands in it
  Node root_;
  const char* failure_ = nullptr;
  std::uint64_t failureLine_ = 0;
  bool outOfMemory_ = false;
};

}  // namespace

Result<PropertyListNode> readXMLPropertyList(std::string_view bytes) {
  if (!hasWholeSurrogatePairs(bytes)) return Error{"half a surrogate pair"};
  const std::unique_ptr<XML_ParserStruct, void (*)(XML_Parser)> parser(XML_ParserCreate(nullptr),
                                                                       XML_ParserFree);
  if (!parser) throw std::bad_alloc();
  return Reader(parser.get()).read(bytes);
}

}  // namespace tessel
