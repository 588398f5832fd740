#include "host/debian/mod_tessel/pages/quantities.h"

#include <array>
#include <chrono>
#include <ctime>

namespace tessel {

namespace {

std::tm localTime(std::time_t seconds) {
  std::tm local{};
  if (::localtime_r(&seconds, &local) == nullptr) local = {};
  return local;
}

std::string formatted(const std::tm& time, const char* format) {
  std::array<char, 32> text{};
  return {text.data(), std::strftime(text.data(), text.size(), format, &time)};
}

}  // namespace

std::string shownSize(std::uint64_t bytes) {
  constexpr std::uint64_t kStep = 1000;
  constexpr std::array<std::string_view, 6> kUnits{" kB", " MB", " GB", " TB", " PB", " EB"};
  if (bytes < kStep) return shownCount(bytes, "byte", "bytes");
  std::uint64_t unit = kStep;
  size_t index = 0;
  while (bytes / unit >= kStep) {
    unit *= kStep;
    ++index;
  }
  std::string shown = std::to_string(bytes / unit);
  if (shown.size() == 1) shown.append(".").append(std::to_string(bytes / (unit / 10) % 10));
  return shown.append(kUnits.at(index));
}

std::string shownCount(std::uint64_t count, std::string_view one, std::string_view many) {
  constexpr size_t kGroup = 3;
  std::string shown = std::to_string(count);
  for (size_t i = shown.size(); i > kGroup; i -= kGroup) shown.insert(i - kGroup, 1, ',');
  shown += ' ';
  return shown.append(count == 1 ? one : many);
}

ShownTime shownTime(std::int64_t nanosecondsSince1970) {
  using std::chrono::floor;
  const auto seconds =
      floor<std::chrono::seconds>(std::chrono::nanoseconds(nanosecondsSince1970)).count();
  const std::tm local = localTime(seconds);
  return {formatted(local, "%Y-%m-%d"), formatted(local, "%H:%M"),
          formatted(local, "%Y-%m-%dT%H:%M%z")};
}

std::string timeZone(std::int64_t secondsSince1970) {
  return formatted(localTime(secondsSince1970), "%Z");
}

}  // namespace tessel
