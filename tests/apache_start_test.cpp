// What of the lists reaches Apache, and what the administrator is told about the rest.
#include "host/debian/httpd_wrapper/apache_start.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "host/debian/httpd_wrapper/settings.h"

namespace {

tessel::ApacheStart startWith(const std::string& entries) {
  const auto list =
      tessel::PropertyList::parse("<plist version=\"1.0\"><dict>" + entries + "</dict></plist>");
  EXPECT_TRUE(list) << entries;
  return list ? tessel::apacheStart(*list) : tessel::ApacheStart{};
}

std::string entry(const std::string& key, const std::string& value) {
  return "<key>" + key + "</key><string>" + value + "</string>";
}

TEST(ApacheStart, WithoutEntriesEverythingIsThere) {
  const auto start = startWith("");
  const std::map<std::string, std::string> expected{{"TESSEL_ACCESS_GROUP", ""},
                                                    {"TESSEL_CERT_ID", ""},
                                                    {"TESSEL_SERVER_ADDR", "*"},
                                                    {"TESSEL_SERVER_NAME", "localhost"},
                                                    {"TESSEL_SERVER_PORT", "8443"}};
  EXPECT_EQ(start.variables, expected);
  EXPECT_EQ(start.defines, std::vector<std::string>{"TESSEL"});
  EXPECT_TRUE(start.remarks.empty());
}

TEST(ApacheStart, TextsAreVariablesAndDefinesAreDefines) {
  const auto start = startWith(entry("ORRIN_OTHER", "a \"b\"\nc") + entry("-D TESSEL_SSL", "") +
                               "<key>-D ORRIN_HAS_DEFAULT_PORTS</key><true/>"
                               "<key>ORRIN_NUMBER</key><integer>5</integer>" +
                               entry("TESSEL_ACCESS_GROUP", "domain users"));
  EXPECT_EQ(start.variables.at("ORRIN_OTHER"), "a \"b\"\nc");
  EXPECT_EQ(start.variables.count("ORRIN_NUMBER"), 0U);
  EXPECT_EQ(start.variables.at("TESSEL_ACCESS_GROUP"), "domain users");
  EXPECT_EQ(start.defines, (std::vector<std::string>{"ORRIN_HAS_DEFAULT_PORTS", "TESSEL_SSL",
                                                     "TESSEL", "TESSEL_ACCESS_GROUP"}));
  EXPECT_TRUE(start.remarks.empty());
  EXPECT_EQ(tessel::withoutTessel(start).defines,
            std::vector<std::string>{"ORRIN_HAS_DEFAULT_PORTS"});
}

TEST(ApacheStart, WhatIsNotTesselsOrOrrinsIsLeftOut) {
  for (const char* key : {"APACHE_RUN_USER", "LD_PRELOAD", "OPENSSL_CONF", "PATH", "OTHER",
                          "ORRIN_=B", "", "1A", "TESSEL_A B", "TESSEL_A&#10;B", "-D ", "-D a&#10;b",
                          "-D a\"b", "-D a b", "-D DUMP_MODULES", "-D FOREGROUND"}) {
    const auto start = startWith(entry(key, "x"));
    EXPECT_EQ(start.variables.size(), 5U) << key;
    EXPECT_EQ(start.defines.size(), 1U) << key;
    EXPECT_EQ(start.remarks.size(), 1U) << key;
  }
}

TEST(ApacheStart, ValuesOfAnotherTypeOpenNothing) {
  for (const char* value : {"<array/>", "<integer>8443</integer>", "<data/>", "<true/>", "<dict/>",
                            "<array><string>tessel</string></array>"}) {
    for (const auto& [key, expected] :
         std::map<std::string, std::string>{{"TESSEL_SERVER_ADDR", "127.0.0.1"},
                                            {"TESSEL_SERVER_PORT", "8443"},
                                            {"TESSEL_ACCESS_GROUP", ":"}}) {
      const auto start = startWith("<key>" + key + "</key>" + value);
      EXPECT_EQ(start.variables.at(key), expected) << value;
      EXPECT_EQ(start.remarks.size(), 1U) << key << value;
    }
  }
}

TEST(ApacheStart, ValuesThatApacheCannotUseAreReplaced) {
  struct Case {
    const char* key;
    const char* value;
    const char* expected;
    bool isRemarked;
  };
  const std::vector<Case> cases{
      {"TESSEL_SERVER_ADDR", "", "*", false},
      {"TESSEL_SERVER_ADDR", "::1", "[::1]", false},
      {"TESSEL_SERVER_ADDR", "192.0.2.1:80", "127.0.0.1", true},
      {"TESSEL_SERVER_ADDR", "example.org", "127.0.0.1", true},
      {"TESSEL_SERVER_PORT", "", "8443", true},
      {"TESSEL_SERVER_PORT", "65535", "65535", false},
      {"TESSEL_SERVER_PORT", "65536", "8443", true},
      {"TESSEL_SERVER_PORT", "0", "8443", true},
      {"TESSEL_SERVER_PORT", "81 https", "8443", true},
      {"TESSEL_SERVER_NAME", "dav.example.org", "dav.example.org", false},
      {"TESSEL_SERVER_NAME", "a\" \"b", "localhost", true},
      {"TESSEL_SERVER_NAME", "a:80", "localhost", true},
      {"TESSEL_CERT_ID", "My Server.0a", "My Server.0a", false},
      {"TESSEL_CERT_ID", "../x", "", true},
      {"TESSEL_ACCESS_GROUP", "", ":", true},
      {"TESSEL_ACCESS_GROUP", "a\" \"b", ":", true},
      {"TESSEL_ACCESS_GROUP", "${HOME}", ":", true},
      {"TESSEL_ACCESS_GROUP", "a\\", ":", true},
  };
  for (const auto& [key, value, expected, isRemarked] : cases) {
    const auto start = startWith(entry(key, value));
    EXPECT_EQ(start.variables.at(key), expected) << value;
    EXPECT_EQ(start.remarks.size(), isRemarked ? 1U : 0U) << key << " " << value;
  }
}

TEST(SettingsRemarks, NameWhatDoesNotMeanWhatItLooksLike) {
  struct Case {
    const char* entries;
    std::vector<std::string> expected;
  };
  const std::string off = "ServerSSL is neither true nor false, so TLS is off";
  const std::vector<Case> cases{
      {"<key>ServerName</key><string/><key>ServerAddr</key><string>*</string><key>ServerPort</key>"
       "<integer>81</integer><key>ServerSSL</key><true/><key>AccessGroup</key><string>root</string>"
       "<key>TESSEL_SERVER_NAME</key><string/>",
       {}},
      {"<key>AcessGroup</key><string>root</string>", {"nobody reads the key AcessGroup"}},
      {"<key>ServerName</key><array/>", {"ServerName is no text, so the host's name is used"}},
      {"<key>ServerSSL</key><string>NO</string>", {}},
      {"<key>ServerSSL</key><string>on</string>", {off}},
      {"<key>ServerSSL</key><array/>", {off}},
      {"<key>AccessGroup</key><string>no such</string>",
       {"AccessGroup names the group no such, which does not exist, so nobody may sign in"}},
  };
  for (const auto& [entries, expected] : cases) {
    const auto list = tessel::PropertyList::parse(std::string("<plist version=\"1.0\"><dict>") +
                                                  entries + "</dict></plist>");
    ASSERT_TRUE(list) << entries;
    EXPECT_EQ(tessel::settingsRemarks(*list), expected) << entries;
  }
}

}  // namespace
