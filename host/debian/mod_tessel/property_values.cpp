#include "host/debian/mod_tessel/property_values.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>

#include "platform/base/text.h"

namespace tessel {

namespace {

constexpr std::string_view kSupportedLock =
    "<D:lockentry><D:lockscope><D:exclusive/></D:lockscope>"
    "<D:locktype><D:write/></D:locktype></D:lockentry>"
    "<D:lockentry><D:lockscope><D:shared/></D:lockscope>"
    "<D:locktype><D:write/></D:locktype></D:lockentry>";

// What is written in place returns its end.
template <typename Number>
char* writeNumber(char* end, Number number) {
  return std::to_chars(end, end + 20, number).ptr;
}

// A moment by the calendar; unlike gmtime_r(3), without a lock that all threads share.
struct Moment {
  int year;
  unsigned month, day, weekday, hour, minute, second;
};

Moment momentOf(std::int64_t nanoseconds) {
  using namespace std::chrono;  // NOLINT(google-build-using-namespace)
  const auto time = floor<seconds>(std::chrono::nanoseconds(nanoseconds));
  const auto date = floor<days>(time);
  const year_month_day calendar{sys_days(date)};
  const hh_mm_ss clock{time - date};
  return {static_cast<int>(calendar.year()),
          static_cast<unsigned>(calendar.month()),
          static_cast<unsigned>(calendar.day()),
          weekday(sys_days(date)).c_encoding(),
          static_cast<unsigned>(clock.hours().count()),
          static_cast<unsigned>(clock.minutes().count()),
          static_cast<unsigned>(clock.seconds().count())};
}

char* writeTwoDigits(char* end, unsigned number) {
  *end++ = static_cast<char>('0' + number / 10 % 10);
  *end++ = static_cast<char>('0' + number % 10);
  return end;
}

// What nanoseconds since 1970 can tell in 64 bits lies between 1677 and 2262.
char* writeYear(char* end, int year) {
  const auto number = static_cast<unsigned>(year);
  return writeTwoDigits(writeTwoDigits(end, number / 100), number % 100);
}

char* writeTime(char* end, const Moment& at) {
  end = writeTwoDigits(end, at.hour);
  *end++ = ':';
  end = writeTwoDigits(end, at.minute);
  *end++ = ':';
  return writeTwoDigits(end, at.second);
}

// RFC 9110, section 5.6.7; independent of the locale.
char* writeHTTPDate(char* end, std::int64_t nanoseconds) {
  constexpr std::array<std::string_view, 7> kDays{"Sun, ", "Mon, ", "Tue, ", "Wed, ",
                                                  "Thu, ", "Fri, ", "Sat, "};
  constexpr std::array<std::string_view, 12> kMonths{" Jan ", " Feb ", " Mar ", " Apr ",
                                                     " May ", " Jun ", " Jul ", " Aug ",
                                                     " Sep ", " Oct ", " Nov ", " Dec "};
  const Moment at = momentOf(nanoseconds);
  end = writeTwoDigits(write(end, kDays.at(at.weekday)), at.day);
  end = writeYear(write(end, kMonths.at(at.month - 1)), at.year);
  *end++ = ' ';
  return write(writeTime(end, at), " GMT");
}

// RFC 3339.
char* writeISODate(char* end, std::int64_t nanoseconds) {
  const Moment at = momentOf(nanoseconds);
  end = writeYear(end, at.year);
  *end++ = '-';
  end = writeTwoDigits(end, at.month);
  *end++ = '-';
  end = writeTwoDigits(end, at.day);
  *end++ = 'T';
  end = writeTime(end, at);
  *end++ = 'Z';
  return end;
}

}  // namespace

bool hasValue(LiveProperty property, const ListedItem& item) {
  switch (property) {
    case LiveProperty::ResourceType:
      return true;
    case LiveProperty::CreationDate:
    case LiveProperty::ETag:
      return item.isFile && !item.isVirtual;
    case LiveProperty::LastModified:
    case LiveProperty::Win32LastModified:
      return item.isFile;
    case LiveProperty::ContentLength:
    case LiveProperty::Executable:
      return item.isFile && !item.isCollection;
    case LiveProperty::SupportedLock:
    case LiveProperty::LockDiscovery:
      return !item.isVirtual;
    case LiveProperty::ContentType:
      return !item.contentType.empty();
    case LiveProperty::DisplayName:
      return item.displayName && isXMLText(*item.displayName);
    case LiveProperty::QuotaAvailable:
    case LiveProperty::QuotaUsed:
      return item.space.has_value();
  }
  return false;
}

char* writeShort(char* end, LiveProperty property, const ListedItem& item) {
  const FileStatus& status = item.status;
  switch (property) {
    case LiveProperty::CreationDate:
      return writeISODate(end, creationOf(status));
    case LiveProperty::LastModified:
    case LiveProperty::Win32LastModified:
      return writeHTTPDate(end, status.modified);
    case LiveProperty::ContentLength:
      return writeNumber(end, status.size);
    case LiveProperty::ETag:
      return writeETag(end, status);
    case LiveProperty::Executable:
      *end++ = (status.mode & S_IXUSR) != 0 ? 'T' : 'F';
      return end;
    case LiveProperty::QuotaAvailable:
      return writeNumber(end, item.space->available);
    case LiveProperty::QuotaUsed:
      return writeNumber(end, item.space->used);
    default:
      return end;
  }
}

bool appendValue(std::string& text, LiveProperty property, const ListedItem& item) {
  if (!hasValue(property, item)) return false;
  switch (property) {
    case LiveProperty::ResourceType:
      if (item.isCollection) text += "<D:collection/>";
      break;
    case LiveProperty::SupportedLock:
      text += kSupportedLock;
      break;
    case LiveProperty::ContentType:
      appendEscapedText(text, item.contentType);
      break;
    case LiveProperty::DisplayName:
      appendEscapedText(text, *item.displayName);
      break;
    default:
      std::array<char, kMostShortBytes> value;
      text.append(value.data(), writeShort(value.data(), property, item));
  }
  return true;
}

void appendLock(std::string& text, const Lock& lock, bool withOwner, std::time_t now) {
  text += "<D:activelock><D:locktype><D:write/></D:locktype><D:lockscope><D:";
  text += lock.isExclusive ? "exclusive" : "shared";
  text += "/></D:lockscope><D:depth>";
  text += lock.isInfinite ? "infinity" : "0";
  text += "</D:depth>";
  if (withOwner) text += lock.owner;
  text += "<D:timeout>Second-";
  text += std::to_string(std::max<std::time_t>(lock.expires - now, 0));
  text += "</D:timeout><D:locktoken><D:href>urn:uuid:";
  text += lock.token;
  text += "</D:href></D:locktoken></D:activelock>";
}

void appendEscapedText(std::string& text, std::string_view bytes) {
  const auto isPlain = [](char c) { return c != '&' && c != '<' && c != '>' && c != '\r'; };
  if (std::all_of(bytes.begin(), bytes.end(), isPlain)) {
    text += bytes;
    return;
  }
  for (const char c : bytes) {
    switch (c) {
      case '&':
        text += "&amp;";
        break;
      case '<':
        text += "&lt;";
        break;
      case '>':
        text += "&gt;";
        break;
      case '\r':
        text += "&#13;";
        break;
      default:
        text += c;
    }
  }
}

std::int64_t creationOf(const FileStatus& status) {
  return status.identity.birth != 0 ? status.identity.birth : status.changed;
}

}  // namespace tessel
