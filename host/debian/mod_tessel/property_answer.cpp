#include "host/debian/mod_tessel/property_answer.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <tuple>

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

constexpr std::string_view kResponse = "<D:response><D:href>";
constexpr std::string_view kFound = "<D:propstat><D:prop>";
constexpr std::string_view kFoundEnd = "</D:prop><D:status>HTTP/1.1 200 OK</D:status></D:propstat>";
constexpr std::string_view kMissingEnd =
    "</D:prop><D:status>HTTP/1.1 404 Not Found</D:status></D:propstat>";

void appendEmptyElement(std::string& text, std::string_view tag) {
  text += '<';
  text += tag;
  text += "/>";
}

// Whether all items of a pattern have this value in common.
bool isSameForAll(LiveProperty property) {
  return property == LiveProperty::ResourceType || property == LiveProperty::SupportedLock ||
         property == LiveProperty::LockDiscovery;
}

// Copies short texts in steps of one size, which takes no call of a function. There must be room
// for one step more than the text, and as many bytes to read.
constexpr size_t kStep = 32;
char* writeInSteps(char* end, const char* text, size_t size) {
  for (size_t at = 0; at < size; at += kStep) std::memcpy(end + at, text + at, kStep);
  return end + size;
}

const Known* knownBy(std::string_view nameSpace, std::string_view name) {
  const auto* const known = std::find_if(kKnown.begin(), kKnown.end(), [&](const Known& candidate) {
    return candidate.nameSpace == nameSpace && candidate.name() == name;
  });
  return known == kKnown.end() ? nullptr : known;
}

}  // namespace

PropertyAnswer::PropertyAnswer(const PropertyRequest& request, std::time_t now)
    : kind_(request.kind), now_(now), needsProperties_(kind_ != PropertyRequest::Kind::Some) {
  for (const PropertyName& name : request.wanted) {
    Wanted wanted{name, std::nullopt, {}, {}, {}};
    if (const Known* known = knownBy(name.nameSpace, name.name)) {
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
  needsLocks_ = needs(LiveProperty::LockDiscovery);
  needsContentType_ = needs(LiveProperty::ContentType);
  needsSpace_ = needs(LiveProperty::QuotaAvailable) || needs(LiveProperty::QuotaUsed);
}

bool PropertyAnswer::needs(LiveProperty property) const {
  const auto* known =
      std::find_if(kKnown.begin(), kKnown.end(),
                   [property](const Known& candidate) { return candidate.property == property; });
  if (kind_ == PropertyRequest::Kind::Names) return true;
  if (kind_ == PropertyRequest::Kind::All && known->isAmongAll) return true;
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
    text += std::to_string(i);
    text += "=\"";
    text += nameSpaces_[i];
  }
  text += "\">\n";
}

void PropertyAnswer::appendFailure(std::string& text, std::string_view href,
                                   std::string_view status) {
  text += kResponse;
  text += href;
  text += "</D:href><D:status>HTTP/1.1 ";
  text += status;
  text += "</D:status></D:response>\n";
}

void PropertyAnswer::appendEnd(std::string& text) { text += "</D:multistatus>\n"; }

void PropertyAnswer::appendAll(std::string& text, const ListedItem& item) {
  const bool isNameOnly = kind_ == PropertyRequest::Kind::Names;
  for (const Property& property : item.properties) {
    const Known* hiding = knownBy(property.space, property.name);
    if (hiding != nullptr && hasValue(hiding->property, item)) continue;
    std::string name;
    if (isNameOnly) appendElement(name, property.space, property.name);
    const std::string& element = isNameOnly ? name : property.value;
    if (!check_.isForAll(element)) continue;
    text += element;
    index_.push_back(&property);
  }
  for (const Known& known : kKnown) {
    if (!isNameOnly && !known.isAmongAll) continue;
    if (!hasValue(known.property, item)) continue;
    if (isNameOnly) {
      appendEmptyElement(text, known.tag());
      continue;
    }
    (void)appendLive(text, known.start, known.end, known.property, item);
  }
}

char* PropertyAnswer::writeKnown(char* end, LiveProperty property, const ListedItem& item) {
  if (property == LiveProperty::ContentType) return write(end, type_.escaped);
  if (property != LiveProperty::CreationDate && property != LiveProperty::LastModified) {
    return writeShort(end, property, item);
  }
  const bool isCreation = property == LiveProperty::CreationDate;
  WrittenDate& date = isCreation ? created_ : modified_;
  const std::chrono::nanoseconds time(isCreation ? creationOf(item.status) : item.status.modified);
  const std::int64_t second = std::chrono::floor<std::chrono::seconds>(time).count();
  if (date.size == 0 || date.second != second) {
    date.second = second;
    date.size =
        static_cast<size_t>(writeShort(date.text.data(), property, item) - date.text.data());
  }
  return writeInSteps(end, date.text.data(), date.size);
}

bool PropertyAnswer::appendLive(std::string& text, std::string_view start, std::string_view end,
                                LiveProperty property, const ListedItem& item) {
  if (!hasValue(property, item)) return false;
  text += start;
  const size_t before = text.size();
  if (property == LiveProperty::LockDiscovery) {
    appendLocks(text, item);
  } else {
    (void)appendValue(text, property, item);
  }
  if (text.size() > before) {
    values_.push_back({property, before, text.size()});
    text += end;
  } else {
    text.back() = '/';
    text += '>';
  }
  return true;
}

void PropertyAnswer::appendLocks(std::string& text, const ListedItem& item) {
  for (const Lock* lock : item.locks) {
    const std::size_t size = lock->owner.size();
    bool withOwner = size > 0 && size <= kMostBytesOfOwners - bytesOfOwners_;
    if (withOwner) {
      // To look at one takes time as well.
      bytesOfOwners_ += size;
      withOwner = lock->owner == lastOwner_ || check_.isForAll(lock->owner);
      if (withOwner) lastOwner_ = lock->owner;
    }
    appendLock(text, *lock, withOwner, now_);
  }
}

void PropertyAnswer::appendWanted(const Wanted& wanted, const ListedItem& item, std::string& text) {
  if (wanted.live && appendLive(text, wanted.start, wanted.end, *wanted.live, item)) return;
  const auto key = std::tie(wanted.name.name, wanted.name.nameSpace);
  const auto set = std::lower_bound(index_.begin(), index_.end(), key,
                                    [](const Property* property, const auto& sought) {
                                      return std::tie(property->name, property->space) < sought;
                                    });
  const bool isSet = set != index_.end() && std::tie((*set)->name, (*set)->space) == key;
  if (isSet && kind_ == PropertyRequest::Kind::All) return;  // it is among all
  if (isSet && check_.isForAll((*set)->value)) {
    text += (*set)->value;
  } else {
    appendEmptyElement(missing_, wanted.tag);
  }
}

void PropertyAnswer::appendProperties(std::string& text, const ListedItem& item) {
  text += "</D:href>";
  text += kFound;
  const size_t start = text.size();
  missing_.clear();
  index_.clear();
  values_.clear();
  if (kind_ != PropertyRequest::Kind::Some) {
    appendAll(text, item);
  } else {
    for (const Property& property : item.properties) index_.push_back(&property);
  }
  if (!wanted_.empty()) {
    std::sort(index_.begin(), index_.end(), [](const Property* one, const Property* other) {
      return std::tie(one->name, one->space) < std::tie(other->name, other->space);
    });
  }
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

// By all on which it depends whether an item without locks and properties of clients has a value.
PropertyAnswer::Pattern& PropertyAnswer::patternFor(const ListedItem& item) {
  const unsigned number = (item.isCollection ? 1U : 0U) | (item.isFile ? 2U : 0U) |
                          (item.isVirtual ? 4U : 0U) | (item.contentType.empty() ? 8U : 0U) |
                          (item.space ? 16U : 0U);
  return patterns_.at(number);
}

void PropertyAnswer::learn(Pattern& pattern, const ListedItem& item) {
  std::string response;
  appendProperties(response, item);
  size_t start = 0;
  for (const WrittenValue& value : values_) {
    if (isSameForAll(value.property)) continue;
    pattern.text.append(response, start, value.start - start);
    pattern.gaps.push_back({value.property, pattern.text.size()});
    start = value.end;
  }
  pattern.text.append(response, start);
  pattern.size = pattern.text.size();
  pattern.text.append(kStep, ' ');
}

// False, and nothing, when it is too long to be worth it.
bool PropertyAnswer::appendByPattern(std::string& text, const ListedItem& item) {
  Pattern& pattern = patternFor(item);
  if (pattern.text.empty()) learn(pattern, item);
  if (type_.type != item.contentType) {
    type_.type = item.contentType;
    type_.escaped.clear();
    appendEscapedText(type_.escaped, type_.type);
  }
  std::array<char, 4096> response;
  const size_t most = kResponse.size() + item.href.size() + pattern.size + kStep +
                      pattern.gaps.size() * std::max(kMostShortBytes, type_.escaped.size());
  if (most > response.size()) return false;
  char* end = write(write(response.data(), kResponse), item.href);
  size_t start = 0;
  for (const Pattern::Gap& gap : pattern.gaps) {
    end = writeInSteps(end, pattern.text.data() + start, gap.position - start);
    end = writeKnown(end, gap.property, item);
    start = gap.position;
  }
  end = writeInSteps(end, pattern.text.data() + start, pattern.size - start);
  text.append(response.data(), end);
  return true;
}

void PropertyAnswer::appendResponse(std::string& text, const ListedItem& item) {
  const bool isOrdinary = item.properties.empty() && item.locks.empty() && !item.displayName;
  if (isOrdinary && appendByPattern(text, item)) return;
  text += kResponse;
  text += item.href;
  appendProperties(text, item);
}

}  // namespace tessel
