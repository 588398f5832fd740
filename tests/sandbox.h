// A host of its own for each test: a folder laid out like a machine's root, in which the real
// programs run at their real paths as uid 0. bubblewrap provides it; where the machine grants no
// namespaces, root uses chroot on the same folder instead, and what needs a mount is skipped.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

struct Outcome {
  int status = -1;     // exit status, 128 plus the number for a signal
  std::string output;  // standard output
  std::string errors;  // standard error
};

class Sandbox {
 public:
  // A host with Tessel installed (TLS off, port 8080) and never started, no Apache loaded, no
  // Orrin, an empty keychain folder, and recording stand-ins for launchctl and harlowctl.
  Sandbox();
  Sandbox(const Sandbox&) = delete;
  Sandbox& operator=(const Sandbox&) = delete;
  Sandbox(Sandbox&&) = delete;
  Sandbox& operator=(Sandbox&&) = delete;
  ~Sandbox();

  // Whether mounts, another host name and the like are to be had.
  static bool hasNamespaces();
  // The host name that programs inside see.
  static std::string hostName();

  // Runs a program inside.
  Outcome run(const std::vector<std::string>& command) const;
  Outcome tesselctl(std::vector<std::string> arguments) const;
  Outcome keychain(std::vector<std::string> arguments) const;
  // Runs a script with /bin/sh inside.
  Outcome shell(const std::string& script) const;
  // Runs tesselctl with both streams in one.
  std::string merged(const std::string& arguments) const;

  // Files, by their paths inside.
  std::string outside(std::string_view path) const;
  void write(std::string_view path, std::string_view content, mode_t mode = 0644) const;
  std::string read(std::string_view path) const;
  bool exists(std::string_view path) const;  // not following a link at the path
  mode_t mode(std::string_view path) const;  // permission bits, 0 for nothing there
  std::string linkTarget(std::string_view path) const;
  std::vector<std::string> names(std::string_view folder) const;  // sorted
  void makeFolder(std::string_view path) const;
  void makeLink(std::string_view path, std::string_view target) const;
  void remove(std::string_view path) const;  // whole trees as well

  // tessel.plist with these entries, and env.plist with these; as XML between <dict> tags.
  void configure(std::string_view entries) const;
  void setEnvironment(std::string_view entries) const;
  // The text of a string in env.plist, "(none)" when it has none.
  std::string environmentValue(const std::string& key) const;

  // Whether the stand-in for launchctl says that Apache is loaded.
  void setApacheLoaded(bool loaded) const;
  bool apacheLoaded() const;
  // What the stand-ins were called with since the last time this was asked, a line a call:
  // "launchctl [list] [org.apache.httpd]".
  std::string calls() const;

  // More arguments for bubblewrap (mounts), and variables for the programs' environment.
  std::vector<std::string> mounts;
  std::vector<std::string> environment{"PATH=/usr/sbin:/usr/bin:/sbin:/bin"};
  uid_t user = 0;

 private:
  std::vector<std::string> wrap(const std::vector<std::string>& command) const;

  std::string root;
};

// A property list whose root is a dictionary of these entries.
std::string dictionary(std::string_view entries);

// The line that reports an error, without its last newline.
std::string red(std::string_view message);

// For EXPECT_PRED2, which shows both when it fails.
bool contains(const std::string& text, const std::string& part);

// Skips the test that calls it where no mount is to be had.
#define REQUIRE_NAMESPACES() \
  if (!Sandbox::hasNamespaces()) GTEST_SKIP() << "no namespaces here, so nothing can be mounted"
