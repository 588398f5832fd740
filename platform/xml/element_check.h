// Whether a text can be put into anybody's XML as it is. What one client hands over is later read
// by others, whose parsers give up a whole document for one fault in it.
#pragma once

#include <memory>
#include <string_view>

struct XML_ParserStruct;

namespace tessel {

// How deep an element may be nested, itself counted: readers recurse, and have a bound of their
// own.
inline constexpr int kDeepestElement = 256;

// Keeps its parser, which it makes when it is first needed. Belongs to one thread; throws nothing
// but std::bad_alloc.
class ElementCheck {
 public:
  // Whether the bytes are one element in UTF-8, no deeper than that, well-formed by XML 1.0 and,
  // with all prefixes declared inside, by Namespaces in XML 1.0.
  bool isWellFormed(std::string_view bytes);
  // Whether anybody's parser reads it: the ASCII characters in the names of namespaces must be
  // those of URIs (RFC 3986) besides. Parsers that put another one between namespace and name
  // refuse it.
  bool isForAll(std::string_view bytes);

 private:
  bool parse(std::string_view bytes, bool isForAll);
  struct End {
    void operator()(XML_ParserStruct* parser) const;
  };
  std::unique_ptr<XML_ParserStruct, End> parser_;
};

}  // namespace tessel
