#include "host/debian/mod_tessel/pages/characters.h"

#include <array>

namespace tessel {

namespace {

constexpr unsigned kContinuationBits = 6;
constexpr char32_t kContinuationMask = 0x3F;

unsigned char byteAt(std::string_view bytes, size_t index) {
  return static_cast<unsigned char>(bytes[index]);
}

// What the first byte of a character says of the rest (RFC 3629, section 4).
struct Lead {
  size_t more = 0;             // bytes that follow; 0 for a byte that begins nothing
  unsigned char least = 0x80;  // of the second byte
  unsigned char most = 0xBF;
  char32_t bits = 0;
};

Lead leadOf(unsigned char byte) {
  if (byte >= 0xC2 && byte <= 0xDF) return {1, 0x80, 0xBF, byte & 0x1FU};
  if (byte == 0xE0) return {2, 0xA0, 0xBF, 0};
  if (byte == 0xED) return {2, 0x80, 0x9F, 0xD};
  if (byte >= 0xE1 && byte <= 0xEF) return {2, 0x80, 0xBF, byte & 0xFU};
  if (byte == 0xF0) return {3, 0x90, 0xBF, 0};
  if (byte >= 0xF1 && byte <= 0xF3) return {3, 0x80, 0xBF, byte & 0x7U};
  if (byte == 0xF4) return {3, 0x80, 0x8F, 4};
  return {};
}

}  // namespace

char32_t takeCharacter(std::string_view& bytes) {
  const unsigned char first = byteAt(bytes, 0);
  if (first < 0x80) {
    bytes.remove_prefix(1);
    return first;
  }
  Lead lead = leadOf(first);
  char32_t character = lead.bits;
  size_t read = 1;
  for (; read <= lead.more && read < bytes.size(); ++read) {
    const unsigned char next = byteAt(bytes, read);
    if (next < lead.least || next > lead.most) break;
    lead.least = 0x80;
    lead.most = 0xBF;
    character = character << kContinuationBits | (next & kContinuationMask);
  }
  const bool isWhole = lead.more > 0 && read == lead.more + 1;
  bytes.remove_prefix(read);
  return isWhole ? character : kReplacement;
}

void appendCharacter(std::string& text, char32_t character) {
  const auto append = [&text](char32_t byte) { text += static_cast<char>(byte); };
  const auto more = [&append, character](unsigned shift) {
    append(0x80 | (character >> shift & kContinuationMask));
  };
  if (character < 0x80) {
    append(character);
  } else if (character < 0x800) {
    append(0xC0 | character >> kContinuationBits);
    more(0);
  } else if (character < 0x10000) {
    append(0xE0 | character >> 2 * kContinuationBits);
    more(kContinuationBits);
    more(0);
  } else {
    append(0xF0 | character >> 3 * kContinuationBits);
    more(2 * kContinuationBits);
    more(kContinuationBits);
    more(0);
  }
}

}  // namespace tessel
