#include "platform/property_list/scalar.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>

namespace tessel {

namespace {

constexpr std::string_view kXMLSpace = " \t\r\n";
constexpr std::string_view kBase64 =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::chrono::sys_days kReferenceDay{std::chrono::year{2001} / 1 / 1};
constexpr std::int64_t kSecondsPerDay = 86400;

bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool takePrefix(std::string_view& text, std::string_view prefix) {
  if (!text.starts_with(prefix)) return false;
  text.remove_prefix(prefix.size());
  return true;
}

// All of the text as digits of this base.
std::optional<std::uint64_t> digits(std::string_view text, int base) {
  std::uint64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, failure] = std::from_chars(text.data(), end, value, base);
  if (text.empty() || failure != std::errc() || stop != end) return std::nullopt;
  return value;
}

// Takes so many digits off the text.
std::optional<int> takeNumber(std::string_view& text, size_t width) {
  const std::string_view number = text.substr(0, width);
  if (number.size() < width || !std::all_of(number.begin(), number.end(), isDigit)) {
    return std::nullopt;
  }
  text.remove_prefix(width);
  return static_cast<int>(*digits(number, 10));
}

// What a character of base64 stands for.
constexpr std::uint8_t kNoBase64 = 64;
constexpr auto kBase64Values = [] {
  std::array<std::uint8_t, 256> values{};
  values.fill(kNoBase64);
  for (std::uint8_t i = 0; i < kNoBase64; ++i) values[static_cast<unsigned char>(kBase64[i])] = i;
  return values;
}();

// Whole seconds since 2001.
std::string dateText(std::int64_t seconds, char separator, const char* zone) {
  std::int64_t days = seconds / kSecondsPerDay;
  std::int64_t time = seconds % kSecondsPerDay;
  if (time < 0) {
    days -= 1;
    time += kSecondsPerDay;
  }
  const std::chrono::year_month_day day{kReferenceDay + std::chrono::days{days}};
  std::array<char, 64> text{};
  const int length =
      std::snprintf(text.data(), text.size(), "%04d-%02u-%02u%c%02d:%02d:%02d%s",
                    static_cast<int>(day.year()), static_cast<unsigned>(day.month()),
                    static_cast<unsigned>(day.day()), separator, static_cast<int>(time / 3600),
                    static_cast<int>(time / 60 % 60), static_cast<int>(time % 60), zone);
  return {text.data(), static_cast<size_t>(length)};
}

}  // namespace

std::string_view withoutXMLSpace(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(kXMLSpace), text.size()));
  return text.substr(0, text.find_last_not_of(kXMLSpace) + 1);
}

std::optional<PropertyListNode::Integer> parseInteger(std::string_view text) {
  constexpr std::uint64_t kLowest = 1ULL << 63U;
  text = withoutXMLSpace(text);
  const bool hexadecimal = takePrefix(text, "0x") || takePrefix(text, "0X");
  const bool negative = !hexadecimal && takePrefix(text, "-");
  if (!hexadecimal && !negative) takePrefix(text, "+");
  const auto magnitude = digits(text, hexadecimal ? 16 : 10);
  if (!magnitude || (negative && *magnitude > kLowest)) return std::nullopt;
  return PropertyListNode::Integer{*magnitude, negative && *magnitude != 0};
}

std::optional<double> parseReal(std::string_view text) {
  text = withoutXMLSpace(text);
  if (takePrefix(text, "+") && text.starts_with('-')) return std::nullopt;
  // Some readers know more of what is no number: nan(1).
  if (text.ends_with(')')) return std::nullopt;
  double real = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, failure] = std::from_chars(text.data(), end, real);
  if (text.empty() || failure != std::errc() || stop != end) return std::nullopt;
  return real;
}

std::optional<PropertyListNode::Date> parseDate(std::string_view text) {
  text = withoutXMLSpace(text);
  const auto year = takeNumber(text, 4);
  const auto month = takePrefix(text, "-") ? takeNumber(text, 2) : std::nullopt;
  const auto day = takePrefix(text, "-") ? takeNumber(text, 2) : std::nullopt;
  if (!year || !month || !day) return std::nullopt;
  int seconds = 0;
  // Hours, minutes, seconds; the first that is left out ends them.
  struct Unit {
    std::string_view separator;
    int limit;
    int seconds;
  };
  for (const Unit& unit : {Unit{"T", 24, 3600}, Unit{":", 60, 60}, Unit{":", 60, 1}}) {
    if (!takePrefix(text, unit.separator)) break;
    const auto number = takeNumber(text, 2);
    if (!number || *number >= unit.limit) return std::nullopt;
    seconds += *number * unit.seconds;
  }
  const std::chrono::year_month_day date{std::chrono::year{*year},
                                         std::chrono::month(static_cast<unsigned>(*month)),
                                         std::chrono::day(static_cast<unsigned>(*day))};
  if (text != "Z" || *year == 0 || !date.ok()) return std::nullopt;
  const std::int64_t days = (std::chrono::sys_days{date} - kReferenceDay).count();
  return PropertyListNode::Date{static_cast<double>(days * kSecondsPerDay + seconds)};
}

std::optional<std::string> parseBase64(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size() / 4 * 3);
  std::uint32_t group = 0;
  size_t count = 0;  // characters of the group
  size_t padding = 0;
  bool ended = false;
  for (const char c : text) {
    if (kXMLSpace.find(c) != std::string_view::npos) continue;
    const unsigned value = kBase64Values[static_cast<unsigned char>(c)];
    const bool pads = c == '=' && count >= 2;
    if (ended || (!pads && (value == kNoBase64 || padding > 0))) return std::nullopt;
    padding += pads ? 1 : 0;
    group = (group << 6U) | (value & 63U);
    if (++count < 4) continue;
    for (unsigned i = 0; i < 3 - padding; ++i) {
      bytes += static_cast<char>((group >> (16U - 8U * i)) & 0xFFU);
    }
    ended = padding > 0;
    count = 0;
    group = 0;
  }
  if (count != 0) return std::nullopt;
  return bytes;
}

void addBase64(std::string_view bytes, size_t lineLength, std::string_view indentation,
               std::string& text) {
  while (!bytes.empty()) {
    std::string_view line = bytes.substr(0, lineLength / 4 * 3);
    bytes.remove_prefix(line.size());
    text += indentation;
    while (!line.empty()) {
      const size_t size = std::min<size_t>(line.size(), 3);
      std::uint32_t group = 0;
      for (size_t i = 0; i < 3; ++i) {
        group = (group << 8U) | (i < size ? static_cast<unsigned char>(line[i]) : 0U);
      }
      for (unsigned i = 0; i < 4; ++i) {
        text += i <= size ? kBase64[(group >> (18U - 6U * i)) & 63U] : '=';
      }
      line.remove_prefix(size);
    }
    text += '\n';
  }
}

std::string integerText(const PropertyListNode::Integer& integer) {
  return (integer.negative ? "-" : "") + std::to_string(integer.magnitude);
}

std::string realText(double real) {
  if (std::isnan(real)) return "nan";
  std::array<char, 512> text{};  // the largest has 309 digits
  char* const end = text.data() + text.size();
  const auto written = std::isfinite(real) && std::trunc(real) == real
                           ? std::to_chars(text.data(), end, real, std::chars_format::fixed)
                           : std::to_chars(text.data(), end, real);
  return {text.data(), written.ptr};
}

std::string dateText(const PropertyListNode::Date& date) {
  constexpr double kFarAway = 1e12;  // seconds
  if (!(std::abs(date.seconds) < kFarAway)) return realText(date.seconds);
  return dateText(static_cast<std::int64_t>(std::floor(date.seconds)), ' ', " +0000");
}

std::optional<std::string> exactDateText(const PropertyListNode::Date& date) {
  constexpr double kFirst = -63113904000;  // 0001-01-01T00:00:00Z
  constexpr double kEnd = 252423993600;    // 10000-01-01T00:00:00Z
  if (!(date.seconds >= kFirst && date.seconds < kEnd)) return std::nullopt;
  if (std::floor(date.seconds) != date.seconds) return std::nullopt;
  return dateText(static_cast<std::int64_t>(date.seconds), 'T', "Z");
}

}  // namespace tessel
