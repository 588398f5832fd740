#include "host/debian/mod_tessel/pages/natural_order.h"

#include <algorithm>

#include "host/debian/mod_tessel/pages/characters.h"

namespace tessel {

namespace {

// The Latin letters from U+00C0 to U+017F without what is above, below and in them; a blank for
// what is no letter.
constexpr char32_t kFirstAccented = 0xC0;
constexpr std::string_view kPlain =
    "aaaaaaaceeeeiiiidnooooo ouuuuyts"
    "aaaaaaaceeeeiiiidnooooo ouuuuyty"
    "aaaaaaccccccccdddd"
    "eeeeeeeeeegggggggg"
    "hhhhiiiiiiiiiiiijj"
    "kkkllllllllllnnnnnnnnn"
    "oooooooorrrrrrssssssss"
    "ttttttuuuuuuuuuuuuwwyyyzzzzzzs";
static_assert(kPlain.size() == 0x180 - kFirstAccented);

bool isBetween(char32_t character, char32_t first, char32_t last) {
  return character >= first && character <= last;
}

bool isDigit(char character) { return character >= '0' && character <= '9'; }

bool isAccent(char32_t character) { return isBetween(character, 0x300, 0x36F); }

// Small, and without accent, in the scripts that have both.
char32_t plain(char32_t character) {
  constexpr char32_t kToSmall = 0x20;
  if (isBetween(character, 'A', 'Z')) return character + kToSmall;
  if (character < kFirstAccented) return character;
  if (character < kFirstAccented + kPlain.size()) {
    const char letter = kPlain[character - kFirstAccented];
    return letter == ' ' ? character : static_cast<char32_t>(letter);
  }
  if (isBetween(character, 0x391, 0x3A9)) return character + kToSmall;  // Greek
  if (isBetween(character, 0x410, 0x42F)) return character + kToSmall;  // Cyrillic
  if (isBetween(character, 0x400, 0x40F)) return character + 0x50;
  if (isBetween(character, 0x1E00, 0x1EFF)) return character | 1U;  // more Latin, in pairs
  return character;
}

// A number as its number of digits and the digits.
void appendNumber(std::string& key, std::string_view digits) {
  constexpr size_t kMostInByte = 0xFF;
  digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size()));
  key += '0';
  size_t count = digits.size();
  for (; count >= kMostInByte; count -= kMostInByte) key += static_cast<char>(kMostInByte);
  key += static_cast<char>(count);
  key += digits;
}

}  // namespace

std::string naturalKey(std::string_view name) {
  std::string key;
  key.reserve(name.size() + 2);
  while (!name.empty()) {
    if (isDigit(name.front())) {
      const auto* const end = std::find_if_not(name.begin(), name.end(), isDigit);
      const auto count = static_cast<size_t>(end - name.begin());
      appendNumber(key, name.substr(0, count));
      name.remove_prefix(count);
      continue;
    }
    const char32_t character = takeCharacter(name);
    if (!isAccent(character)) appendCharacter(key, plain(character));
  }
  return key;
}

}  // namespace tessel
