#include "host/debian/mod_tessel/pages/markup.h"

#include "host/debian/mod_tessel/pages/characters.h"

namespace tessel {

namespace {

constexpr char32_t kPictures = 0x2400;  // of the control characters, in their order
constexpr char32_t kPictureOfDelete = 0x2421;

bool isBetween(char32_t character, char32_t first, char32_t last) {
  return character >= first && character <= last;
}

// Embeddings, overrides and isolates of the bidirectional algorithm (UAX #9), and the two
// separators that end a line.
bool turnsOrBreaks(char32_t character) {
  return isBetween(character, 0x2028, 0x202E) || isBetween(character, 0x2066, 0x2069);
}

// What a document must not contain (HTML, section 13.2.3.5): controls and noncharacters.
bool isUnfit(char32_t character) {
  return isBetween(character, 0x80, 0x9F) || isBetween(character, 0xFDD0, 0xFDEF) ||
         (character & 0xFFFE) == 0xFFFE;
}

char32_t visible(char32_t character) {
  if (character < 0x20) return kPictures + character;
  if (character == 0x7F) return kPictureOfDelete;
  return turnsOrBreaks(character) || isUnfit(character) ? kReplacement : character;
}

}  // namespace

void appendText(std::string& page, std::string_view bytes) {
  while (!bytes.empty()) {
    const char32_t character = visible(takeCharacter(bytes));
    switch (character) {
      case '&':
        page += "&amp;";
        break;
      case '<':
        page += "&lt;";
        break;
      case '>':
        page += "&gt;";
        break;
      case '"':
        page += "&quot;";
        break;
      case '\'':
        page += "&#39;";
        break;
      default:
        appendCharacter(page, character);
    }
  }
}

void appendName(std::string& page, std::string_view bytes) {
  page += "<bdi>";
  appendText(page, bytes);
  page += "</bdi>";
}

}  // namespace tessel
