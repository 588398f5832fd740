#include "host/debian/mod_tessel/share_listing.h"

#include <algorithm>
#include <array>

#include "platform/base/hexadecimal.h"
#include "platform/base/text.h"

namespace tessel {

namespace {

constexpr std::string_view kDAV = "DAV:";

std::string xmlEscaped(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\r':
        escaped += "&#13;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

// RFC 9110, section 5.6.7; independent of the locale.
std::string httpDate(std::time_t time) {
  constexpr std::array kDays{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  constexpr std::array kMonths{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  std::tm utc{};
  ::gmtime_r(&time, &utc);
  std::array<char, 64> text{};
  (void)std::strftime(text.data(), text.size(), "%d ? %Y %H:%M:%S GMT", &utc);
  std::string date = text.data();
  date.replace(date.find('?'), 1, kMonths.at(static_cast<size_t>(utc.tm_mon)));
  return std::string(kDays.at(static_cast<size_t>(utc.tm_wday))) + ", " + date;
}

struct Property {
  std::string name;  // in the namespace DAV:
  std::string value;
};

std::vector<Property> propertiesOf(const ListedCollection& collection) {
  std::vector<Property> properties{{"resourcetype", "<D:collection/>"},
                                   {"getlastmodified", httpDate(collection.modified)}};
  if (isXMLText(collection.name)) {
    properties.push_back({"displayname", xmlEscaped(collection.name)});
  }
  return properties;
}

std::string element(const Property& property, bool nameOnly) {
  const std::string tag = "D:" + property.name;
  return nameOnly ? "<" + tag + "/>" : "<" + tag + ">" + property.value + "</" + tag + ">";
}

std::string propstat(const std::string& elements, const char* status) {
  if (elements.empty()) return "";
  return "<D:propstat><D:prop>" + elements + "</D:prop><D:status>HTTP/1.1 " + status +
         "</D:status></D:propstat>";
}

std::string propstats(const ListedCollection& collection, const PropertyRequest& request) {
  const std::vector<Property> properties = propertiesOf(collection);
  std::string found;
  std::string missing;
  if (!request.wanted) {
    for (const Property& property : properties) found += element(property, request.namesOnly);
    return propstat(found, "200 OK");
  }
  for (const PropertyName& wanted : *request.wanted) {
    const auto property =
        std::find_if(properties.begin(), properties.end(), [&wanted](const Property& candidate) {
          return wanted.nameSpace == kDAV && candidate.name == wanted.name;
        });
    if (property != properties.end()) {
      found += element(*property, false);
    } else {
      missing += "<" + wanted.name + " xmlns=\"" + wanted.nameSpace + "\"/>";
    }
  }
  if (found.empty() && missing.empty()) return propstat(" ", "200 OK");
  return propstat(found, "200 OK") + propstat(missing, "404 Not Found");
}

}  // namespace

std::string percentEncoded(std::string_view bytes) {
  constexpr std::string_view kUnreserved = "-._~";
  std::string encoded;
  for (const char c : bytes) {
    const bool isAlphanumeric =
        (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
    if (isAlphanumeric || kUnreserved.find(c) != std::string_view::npos) {
      encoded += c;
    } else {
      encoded += percentEncoded(c);
    }
  }
  return encoded;
}

std::string multistatus(const std::vector<ListedCollection>& collections,
                        const PropertyRequest& request) {
  std::string body =
      "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<D:multistatus xmlns:D=\"DAV:\">\n";
  for (const ListedCollection& collection : collections) {
    body += "<D:response><D:href>" + collection.href + "</D:href>" +
            propstats(collection, request) + "</D:response>\n";
  }
  return body + "</D:multistatus>\n";
}

}  // namespace tessel
