#include "platform/base/text.h"

#include <algorithm>
#include <array>
#include <limits>

#include "platform/base/hexadecimal.h"

namespace tessel {

namespace {

constexpr std::string_view kBlanks = " \t\n\v\f\r";

// The length of the well-formed UTF-8 sequence at the start of the bytes, 0 when there is none
// (RFC 3629, section 4).
size_t sequenceLength(std::string_view bytes) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(bytes[i]); };
  const auto continues = [&](size_t i, unsigned low = 0x80, unsigned high = 0xBF) {
    return i < bytes.size() && byte(i) >= low && byte(i) <= high;
  };
  const unsigned first = byte(0);
  if (first < 0x80) return 1;
  if (first >= 0xC2 && first <= 0xDF) return continues(1) ? 2 : 0;
  if (first >= 0xE0 && first <= 0xEF) {
    const unsigned low = first == 0xE0 ? 0xA0 : 0x80;
    const unsigned high = first == 0xED ? 0x9F : 0xBF;
    return continues(1, low, high) && continues(2) ? 3 : 0;
  }
  if (first >= 0xF0 && first <= 0xF4) {
    const unsigned low = first == 0xF0 ? 0x90 : 0x80;
    const unsigned high = first == 0xF4 ? 0x8F : 0xBF;
    return continues(1, low, high) && continues(2) && continues(3) ? 4 : 0;
  }
  return 0;
}

// The number of a well-formed character.
char32_t numberOf(std::string_view character) {
  const auto first = static_cast<unsigned char>(character.front());
  if (character.size() == 1) return first;
  // Of the first byte, the bits after those that tell the length and a zero.
  char32_t number = first & (0x7FU >> character.size());
  for (const char c : character.substr(1)) {
    number = (number << 6U) | (static_cast<unsigned char>(c) & 0x3FU);
  }
  return number;
}

// Whether a character does nothing to a terminal, and leaves the order of the others alone: no C0
// or C1 control, end of line or mark of direction.
bool isPlain(std::string_view character) {
  struct Range {
    char32_t first;
    char32_t last;
  };
  constexpr std::array<Range, 6> kSteering{{{0, 0x1F},
                                            {0x7F, 0x9F},
                                            {0x061C, 0x061C},
                                            {0x200E, 0x200F},
                                            {0x2028, 0x202E},
                                            {0x2066, 0x2069}}};
  const char32_t number = numberOf(character);
  return std::none_of(kSteering.begin(), kSteering.end(), [&](const Range& range) {
    return number >= range.first && number <= range.last;
  });
}

bool isPlainText(std::string_view text) {
  while (!text.empty()) {
    const size_t length = sequenceLength(text);
    if (length == 0 || !isPlain(text.substr(0, length))) return false;
    text.remove_prefix(length);
  }
  return true;
}

// What begins with one of these is white space (Unicode, PropList.txt).
constexpr std::array<std::string_view, 25> kWhiteSpace{
    "\t",     "\n",     "\v",     "\f",     "\r",     " ",      "\xC2\x85", "\xC2\xA0", "\u1680",
    "\u2000", "\u2001", "\u2002", "\u2003", "\u2004", "\u2005", "\u2006",   "\u2007",   "\u2008",
    "\u2009", "\u200A", "\u2028", "\u2029", "\u202F", "\u205F", "\u3000"};

void skipBlanks(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
}

// Skips an optional sign and returns whether it was a minus.
bool skipSign(std::string_view& text) {
  if (text.empty() || (text.front() != '-' && text.front() != '+')) return false;
  const bool minus = text.front() == '-';
  text.remove_prefix(1);
  return minus;
}

}  // namespace

bool isUTF8(std::string_view bytes) {
  while (!bytes.empty()) {
    const size_t length = sequenceLength(bytes);
    if (length == 0) return false;
    bytes.remove_prefix(length);
  }
  return true;
}

bool isXMLText(std::string_view bytes) {
  const auto isRefused = [](char c) {
    return static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r';
  };
  return isUTF8(bytes) && std::none_of(bytes.begin(), bytes.end(), isRefused) &&
         bytes.find("\xEF\xBF\xBE") == std::string_view::npos &&
         bytes.find("\xEF\xBF\xBF") == std::string_view::npos;
}

std::string trimmed(std::string_view text) {
  const auto find = [](auto matches) {
    return std::find_if(kWhiteSpace.begin(), kWhiteSpace.end(), matches);
  };
  const auto begins = [&text](std::string_view space) { return text.starts_with(space); };
  const auto ends = [&text](std::string_view space) { return text.ends_with(space); };
  for (const auto* space = find(begins); space != kWhiteSpace.end(); space = find(begins)) {
    text.remove_prefix(space->size());
  }
  for (const auto* space = find(ends); space != kWhiteSpace.end(); space = find(ends)) {
    text.remove_suffix(space->size());
  }
  return std::string(text);
}

std::string shown(std::string_view text) {
  std::string line;
  while (!text.empty()) {
    const size_t length = sequenceLength(text);
    const std::string_view character = text.substr(0, std::max(length, size_t{1}));
    text.remove_prefix(character.size());
    if (length > 0 && isPlain(character) && character != "\\") {
      line += character;
      continue;
    }
    for (const char c : character) {
      const unsigned byte = static_cast<unsigned char>(c);
      line += {'\\', 'x', kUpperCaseDigits[byte >> 4U], kUpperCaseDigits[byte & 0xFU]};
    }
  }
  return line;
}

std::string shellWord(std::string_view text) {
  constexpr std::string_view kSafe =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-./:@%+=,";
  if (!text.empty() && text.find_first_not_of(kSafe) == std::string_view::npos) {
    return std::string(text);
  }
  const bool asItIs = isPlainText(text);
  std::string word = asItIs ? "'" : "$'";
  for (const char c : asItIs ? std::string(text) : shown(text)) {
    if (c == '\'') {
      word += asItIs ? "'\\''" : "\\'";
    } else {
      word += c;
    }
  }
  return word + "'";
}

std::string padded(std::string text, size_t width) {
  if (text.size() < width) text.resize(width, ' ');
  return text;
}

std::int32_t leadingInteger(std::string_view text) {
  skipBlanks(text);
  const bool negative = skipSign(text);
  constexpr std::int64_t kLargest = std::numeric_limits<std::int32_t>::max();
  std::int64_t value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') break;
    value = std::min(10 * value + (c - '0'), kLargest + 1);
  }
  return static_cast<std::int32_t>(negative ? -value : std::min(value, kLargest));
}

bool saysYes(std::string_view text) {
  skipBlanks(text);
  (void)skipSign(text);
  text.remove_prefix(std::min(text.find_first_not_of('0'), text.size()));
  return !text.empty() &&
         std::string_view("YyTt123456789").find(text.front()) != std::string_view::npos;
}

}  // namespace tessel
