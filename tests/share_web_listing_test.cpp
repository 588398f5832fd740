#include <gtest/gtest.h>

#include <string>

#include "host/debian/mod_tessel/share_listing.h"

namespace {

constexpr std::time_t kModified = 784111777;  // the example of RFC 9110, section 5.6.7

std::string list(const tessel::PropertyRequest& request, const std::string& name = "a&b") {
  return tessel::multistatus({{"/webdav/x/", name, kModified}}, request);
}

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST(ShareWebListing, URLsHoldEveryByte) {
  EXPECT_EQ(tessel::percentEncoded("aZ09-._~"), "aZ09-._~");
  EXPECT_EQ(tessel::percentEncoded("a b/%?#\xC3\xB6\n"), "a%20b%2F%25%3F%23%C3%B6%0A");
}

TEST(ShareWebListing, AllProperties) {
  const std::string body = list({});
  EXPECT_TRUE(contains(body, "<D:href>/webdav/x/</D:href>"));
  EXPECT_TRUE(contains(body, "<D:resourcetype><D:collection/></D:resourcetype>"));
  EXPECT_TRUE(
      contains(body, "<D:getlastmodified>Sun, 06 Nov 1994 08:49:37 GMT</D:getlastmodified>"));
  EXPECT_TRUE(contains(body, "<D:displayname>a&amp;b</D:displayname>"));
}

TEST(ShareWebListing, NamesOnly) {
  const std::string body = list({std::nullopt, true});
  EXPECT_TRUE(contains(body, "<D:displayname/>"));
  EXPECT_FALSE(contains(body, "1994"));
}

TEST(ShareWebListing, WantedProperties) {
  const std::string body = list({{{{"DAV:", "displayname"}, {"urn:x", "displayname"}}}, false});
  EXPECT_TRUE(contains(body,
                       "<D:displayname>a&amp;b</D:displayname></D:prop><D:status>HTTP/1.1 "
                       "200 OK"));
  EXPECT_TRUE(contains(body, "<displayname xmlns=\"urn:x\"/></D:prop><D:status>HTTP/1.1 404"));
  EXPECT_FALSE(contains(body, "getlastmodified"));
}

TEST(ShareWebListing, ANameThatXMLCannotHoldIsLeftOut) {
  EXPECT_FALSE(contains(list({}, "a\x01z"), "displayname"));
  EXPECT_FALSE(contains(list({}, "a\xFFz"), "displayname"));
}

}  // namespace
