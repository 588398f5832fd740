// Sizes, numbers and times as a page shows them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tessel {

// "1.4 MB": three figures at most, in units of a thousand, rounded down so that no free space is
// promised that is not there.
std::string shownSize(std::uint64_t bytes);

// "1,234 files", "1 file".
std::string shownCount(std::uint64_t count, std::string_view one, std::string_view many);

// "2024-02-29" and "13:05" in the time zone of this machine, and the same with its offset as HTML's
// time element has it, "2024-02-29T13:05+0100".
struct ShownTime {
  std::string date;
  std::string clock;
  std::string exact;
};
ShownTime shownTime(std::int64_t nanosecondsSince1970);

// The time zone of this machine at that moment: "CET".
std::string timeZone(std::int64_t secondsSince1970);

}  // namespace tessel
