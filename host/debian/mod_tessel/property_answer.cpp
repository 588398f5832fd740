#include "host/debian/mod_tessel/property_answer.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <tuple>

#include "host/debian/mod_tessel/etag.h"
#include "platform/base/text.h"

namespace tessel {

namespace {

constexpr std::string_view kDAV = "DAV:";

struct Known {
  LiveProperty property;
  std::string_view nameSpace;
  bool isAmongAll;

  // The element's start, "<D:name>"; what else is needed of it is cut from that and the end.
  std::string_view start, end;

  std::string_view tag() const { return start.substr(1, start.size() - 2); }
  std::string_view name() const { return tag().substr(2); }
};

// Each prefix is declared once, at the start of the answer.
#define KNOWN(property, space, tag, isAmongAll) \
  Known { property, space, isAmongAll, "<" tag ">", "</" tag ">" }

constexpr std::array kKnown{
    KNOWN(LiveProperty::ResourceType, kDAV, "D:resourcetype", true),
    KNOWN(LiveProperty::CreationDate, kDAV, "D:creationdate", true),
    KNOWN(LiveProperty::ContentLength, kDAV, "D:getcontentlength", true),
    KNOWN(LiveProperty::LastModified, kDAV, "D:getlastmodified", true),
    KNOWN(LiveProperty::ETag, kDAV, "D:getetag", true),
    KNOWN(LiveProperty::Executable, kApacheProperties, "A:executable", true),
    KNOWN(LiveProperty::SupportedLock, kDAV, "D:supportedlock", true),
    KNOWN(LiveProperty::LockDiscovery, kDAV, "D:lockdiscovery", true),
    KNOWN(LiveProperty::ContentType, kDAV, "D:getcontenttype", true),
    KNOWN(LiveProperty::DisplayName, kDAV, "D:displayname", true),
    KNOWN(LiveProperty::QuotaAvailable, kDAV, "D:quota-available-bytes", false),
    KNOWN(LiveProperty::QuotaUsed, kDAV, "D:quota-used-bytes", false),
    KNOWN(LiveProperty::Win32LastModified, kMicrosoftProperties, "M:Win32LastModifiedTime", false),
};
#undef KNOWN

constexpr std::string_view kSupportedLock =
    "<D:lockentry><D:lockscope><D:exclusive/></D:lockscope>"
    "<D:locktype><D:write/></D:locktype></D:lockentry>"
    "<D:lockentry><D:lockscope><D:shared/></D:lockscope>"
    "<D:locktype><D:write/></D:locktype></D:lockentry>";

constexpr std::string_view kFound = "<D:propstat><D:prop>";
constexpr std::string_view kFoundEnd = "</D:prop><D:status>HTTP/1.1 200 OK</D:status></D:propstat>";
constexpr std::string_view kMissingEnd =
    "</D:prop><D:status>HTTP/1.1 404 Not Found</D:status></D:propstat>";

void appendEscaped(std::string& text, std::string_view bytes) {
  if (bytes.find_first_of("&<>\"\r") == std::string_view::npos) {
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
      case '"':
        text += "&quot;";
        break;
      case '\r':
        text += "&#13;";
        break;
      default:
        text += c;
    }
  }
}

template <typename Number>
void appendNumber(std::string& text, Number number) {
  std::array<char, 24> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  text.append(digits.data(), end);
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

// Text of a known length, written in place.
class Line {
 public:
  Line& operator<<(std::string_view text) {
    end_ = std::copy(text.begin(), text.end(), end_);
    return *this;
  }
  // Two digits.
  Line& operator<<(unsigned number) {
    *end_++ = static_cast<char>('0' + number / 10 % 10);
    *end_++ = static_cast<char>('0' + number % 10);
    return *this;
  }
  // What nanoseconds since 1970 can tell in 64 bits lies between 1677 and 2262.
  Line& operator<<(int year) {
    return *this << static_cast<unsigned>(year) / 100 << static_cast<unsigned>(year) % 100;
  }
  std::string_view text() const {
    return {bytes_.data(), static_cast<size_t>(end_ - bytes_.data())};
  }

 private:
  std::array<char, 40> bytes_;
  char* end_ = bytes_.data();
};

// RFC 9110, section 5.6.7; independent of the locale.
void appendHTTPDate(std::string& text, std::int64_t nanoseconds) {
  constexpr std::array<std::string_view, 7> kDays{"Sun, ", "Mon, ", "Tue, ", "Wed, ",
                                                  "Thu, ", "Fri, ", "Sat, "};
  constexpr std::array<std::string_view, 12> kMonths{" Jan ", " Feb ", " Mar ", " Apr ",
                                                     " May ", " Jun ", " Jul ", " Aug ",
                                                     " Sep ", " Oct ", " Nov ", " Dec "};
  const Moment at = momentOf(nanoseconds);
  Line line;
  line << kDays.at(at.weekday) << at.day << kMonths.at(at.month - 1) << at.year << " " << at.hour
       << ":" << at.minute << ":" << at.second << " GMT";
  text += line.text();
}

// RFC 3339.
void appendISODate(std::string& text, std::int64_t nanoseconds) {
  const Moment at = momentOf(nanoseconds);
  Line line;
  line << at.year << "-" << at.month << "-" << at.day << "T" << at.hour << ":" << at.minute << ":"
       << at.second << "Z";
  text += line.text();
}

void appendLock(std::string& text, const Lock& lock, std::time_t now) {
  text += "<D:activelock><D:locktype><D:write/></D:locktype><D:lockscope><D:";
  text += lock.isExclusive ? "exclusive" : "shared";
  text += "/></D:lockscope><D:depth>";
  text += lock.isInfinite ? "infinity" : "0";
  text += "</D:depth>";
  text += lock.owner;
  text += "<D:timeout>Second-";
  appendNumber(text, std::max<std::time_t>(lock.expires - now, 0));
  text += "</D:timeout><D:locktoken><D:href>urn:uuid:";
  text += lock.token;
  text += "</D:href></D:locktoken></D:activelock>";
}

void appendEmptyElement(std::string& text, std::string_view tag) {
  text += '<';
  text += tag;
  text += "/>";
}

std::int64_t creationOf(const FileStatus& status) {
  return status.identity.birth != 0 ? status.identity.birth : status.changed;
}

const Known* knownBy(const PropertyName& name) {
  const auto* const known =
      std::find_if(kKnown.begin(), kKnown.end(), [&name](const Known& candidate) {
        return candidate.nameSpace == name.nameSpace && candidate.name() == name.name;
      });
  return known == kKnown.end() ? nullptr : known;
}

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

}  // namespace

bool appendValue(std::string& text, LiveProperty property, const ListedItem& item,
                 std::time_t now) {
  if (!hasValue(property, item)) return false;
  const FileStatus& status = item.status;
  switch (property) {
    case LiveProperty::ResourceType:
      if (item.isCollection) text += "<D:collection/>";
      break;
    case LiveProperty::CreationDate:
      appendISODate(text, creationOf(status));
      break;
    case LiveProperty::ContentLength:
      appendNumber(text, status.size);
      break;
    case LiveProperty::LastModified:
    case LiveProperty::Win32LastModified:
      appendHTTPDate(text, status.modified);
      break;
    case LiveProperty::ETag:
      appendETag(text, status);
      break;
    case LiveProperty::Executable:
      text += (status.mode & S_IXUSR) != 0 ? 'T' : 'F';
      break;
    case LiveProperty::SupportedLock:
      text += kSupportedLock;
      break;
    case LiveProperty::LockDiscovery:
      for (const Lock* lock : item.locks) appendLock(text, *lock, now);
      break;
    case LiveProperty::ContentType:
      appendEscaped(text, item.contentType);
      break;
    case LiveProperty::DisplayName:
      appendEscaped(text, *item.displayName);
      break;
    case LiveProperty::QuotaAvailable:
      appendNumber(text, item.space->available);
      break;
    case LiveProperty::QuotaUsed:
      appendNumber(text, item.space->used);
      break;
  }
  return true;
}

PropertyAnswer::PropertyAnswer(const PropertyRequest& request, std::time_t now)
    : kind_(request.kind), now_(now), needsProperties_(kind_ != PropertyRequest::Kind::Some) {
  for (const PropertyName& name : request.wanted) {
    Wanted wanted{name, std::nullopt, {}, {}, {}};
    if (const Known* known = knownBy(name)) {
      if (kind_ == PropertyRequest::Kind::All && known->isAmongAll) continue;
      wanted.live = known->property;
      wanted.tag = known->tag();
      wanted.start = known->start;
      wanted.end = known->end;
    } else if (name.nameSpace == kDAV) {
      wanted.tag = "D:" + name.name;
    } else if (name.nameSpace.empty()) {
      wanted.tag = name.name;
    } else {
      auto declared = std::find(nameSpaces_.begin(), nameSpaces_.end(), name.nameSpace);
      if (declared == nameSpaces_.end()) {
        declared = nameSpaces_.insert(nameSpaces_.end(), name.nameSpace);
      }
      wanted.tag = "n" + std::to_string(declared - nameSpaces_.begin()) + ":" + name.name;
    }
    needsProperties_ =
        needsProperties_ || !wanted.live || *wanted.live == LiveProperty::DisplayName;
    wanted_.push_back(std::move(wanted));
  }
}

bool PropertyAnswer::needs(LiveProperty property) const {
  const auto* known =
      std::find_if(kKnown.begin(), kKnown.end(),
                   [property](const Known& candidate) { return candidate.property == property; });
  if (kind_ != PropertyRequest::Kind::Some && known->isAmongAll) return true;
  return std::any_of(wanted_.begin(), wanted_.end(),
                     [property](const Wanted& wanted) { return wanted.live == property; });
}

void PropertyAnswer::appendStart(std::string& text) const {
  text += "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<D:multistatus xmlns:D=\"DAV:\" xmlns:A=\"";
  text += kApacheProperties;
  text += "\" xmlns:M=\"";
  text += kMicrosoftProperties;
  for (size_t i = 0; i < nameSpaces_.size(); ++i) {
    text += "\" xmlns:n";
    appendNumber(text, i);
    text += "=\"";
    text += nameSpaces_[i];
  }
  text += "\">\n";
}

void PropertyAnswer::appendEnd(std::string& text) { text += "</D:multistatus>\n"; }

void PropertyAnswer::appendAll(std::string& text, const ListedItem& item) {
  const bool isNameOnly = kind_ == PropertyRequest::Kind::Names;
  for (const Property& property : item.properties) {
    if (!isNameOnly) {
      text += property.value;
    } else if (property.space.empty()) {
      appendEmptyElement(text, property.name);
    } else {
      text += "<p:" + property.name + " xmlns:p=\"" + property.space + "\"/>";
    }
  }
  for (const Known& known : kKnown) {
    if (!known.isAmongAll) continue;
    if (!hasValue(known.property, item)) continue;
    if (isNameOnly) {
      appendEmptyElement(text, known.tag());
      continue;
    }
    (void)appendLive(text, known.start, known.end, known.property, item);
  }
}

bool PropertyAnswer::appendLive(std::string& text, std::string_view start, std::string_view end,
                                LiveProperty property, const ListedItem& item) {
  if (!hasValue(property, item)) return false;
  text += start;
  const size_t before = text.size();
  if (property == LiveProperty::CreationDate || property == LiveProperty::LastModified) {
    const bool isCreation = property == LiveProperty::CreationDate;
    WrittenDate& date = isCreation ? created_ : modified_;
    const std::chrono::nanoseconds time(isCreation ? creationOf(item.status)
                                                   : item.status.modified);
    const std::int64_t second = std::chrono::floor<std::chrono::seconds>(time).count();
    if (date.text.empty() || date.second != second) {
      date.second = second;
      date.text.clear();
      (void)appendValue(date.text, property, item, now_);
    }
    text += date.text;
  } else {
    (void)appendValue(text, property, item, now_);
  }
  if (text.size() > before) {
    text += end;
  } else {
    text.back() = '/';
    text += '>';
  }
  return true;
}

void PropertyAnswer::appendWanted(const Wanted& wanted, const ListedItem& item, std::string& text) {
  if (wanted.live && appendLive(text, wanted.start, wanted.end, *wanted.live, item)) return;
  const auto key = std::tie(wanted.name.name, wanted.name.nameSpace);
  const auto set = std::lower_bound(index_.begin(), index_.end(), key,
                                    [](const Property* property, const auto& sought) {
                                      return std::tie(property->name, property->space) < sought;
                                    });
  if (set != index_.end() && std::tie((*set)->name, (*set)->space) == key) {
    text += (*set)->value;
  } else {
    appendEmptyElement(missing_, wanted.tag);
  }
}

void PropertyAnswer::appendResponse(std::string& text, const ListedItem& item) {
  text += "<D:response><D:href>";
  text += item.href;
  text += "</D:href>";
  text += kFound;
  const size_t start = text.size();
  missing_.clear();
  index_.clear();
  if (!wanted_.empty()) {
    for (const Property& property : item.properties) index_.push_back(&property);
    std::sort(index_.begin(), index_.end(), [](const Property* one, const Property* other) {
      return std::tie(one->name, one->space) < std::tie(other->name, other->space);
    });
  }
  if (kind_ != PropertyRequest::Kind::Some) appendAll(text, item);
  for (const Wanted& wanted : wanted_) appendWanted(wanted, item, text);
  // A response has at least one list of properties, if an empty one.
  if (text.size() == start && !missing_.empty()) {
    text.resize(start - kFound.size());
  } else {
    text += kFoundEnd;
  }
  if (!missing_.empty()) {
    text += kFound;
    text += missing_;
    text += kMissingEnd;
  }
  text += "</D:response>\n";
}

}  // namespace tessel
