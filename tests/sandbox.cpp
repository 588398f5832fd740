#include "tests/sandbox.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace {

constexpr const char* kHostName = "sandbox.example.net";

// Records its name and arguments, then does what a test asks of it, then plays the part.
constexpr const char* kStandInHead = R"(#!/bin/sh
{ printf '%s' "${0##*/}"; for a in "$@"; do printf ' [%s]' "$a"; done; echo; } >> /var/log/calls
)";
constexpr const char* kLaunchctl = R"([ -e /etc/launchctl.hook ] && . /etc/launchctl.hook
case $1 in
  list) [ -e /run/apache.loaded ] ;;
  load) : > /run/apache.loaded ;;
  unload) case $3 in /System/*) rm -f /run/apache.loaded ;; esac ;;
esac
)";

// What a child has written to a stream of its own.
std::string content(int stream) {
  std::string text(static_cast<size_t>(lseek(stream, 0, SEEK_END)), '\0');
  text.resize(static_cast<size_t>(pread(stream, text.data(), text.size(), 0)));
  close(stream);
  return text;
}

Outcome execute(const std::vector<std::string>& command) {
  const int out = memfd_create("out", MFD_CLOEXEC);
  const int err = memfd_create("err", MFD_CLOEXEC);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);
  std::vector<char*> argv;
  for (const std::string& word : command) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  pid_t child = 0;
  int status = 0;
  if (posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ) != 0 ||
      waitpid(child, &status, 0) != child) {
    throw std::runtime_error("cannot run " + command[0]);
  }
  posix_spawn_file_actions_destroy(&actions);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), content(out),
          content(err)};
}

}  // namespace

bool Sandbox::hasNamespaces() {
  static const bool has = [] {
    if (execute({"bwrap", "--unshare-uts", "--hostname", kHostName, "--bind", "/", "/", "true"})
            .status == 0) {
      return true;
    }
    if (geteuid() != 0) {
      throw std::runtime_error("the tests need user namespaces, or to be run by root");
    }
    return false;
  }();
  return has;
}

std::string Sandbox::hostName() {
  if (hasNamespaces()) return kHostName;
  std::array<char, 256> name{};
  gethostname(name.data(), name.size() - 1);
  return name.data();
}

Sandbox::Sandbox() {
  umask(022);  // folders inside are like a machine's, whatever this process was given
  fs::create_directories(TESSEL_SANDBOX_ROOTS);
  std::string pattern = std::string(TESSEL_SANDBOX_ROOTS) + "/XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp");
  root = pattern;
  chmod(root.c_str(), 0755);
  fs::copy(TESSEL_SANDBOX_BASE, root,
           fs::copy_options::recursive | fs::copy_options::create_hard_links);
  for (const char* folder :
       {"/dev", "/proc", "/tmp", "/run", "/var/log", "/etc/apache2/other", "/etc/tessel",
        "/var/lib/tessel", "/Library/Keychains", "/Library/LaunchAgents"}) {
    makeFolder(folder);
  }
  if (!hasNamespaces()) {
    mknod(outside("/dev/null").c_str(), S_IFCHR | 0666, makedev(1, 3));
    mknod(outside("/dev/zero").c_str(), S_IFCHR | 0666, makedev(1, 5));
    // What the sanitizers read of /proc. Their leak checker needs more of it than that.
    write("/proc/self/environ", std::string_view("ASAN_OPTIONS=detect_leaks=0\0", 28));
    makeLink("/proc/self/exe", "/usr/sbin/tesselctl");
  }
  write("/bin/launchctl", std::string(kStandInHead) + kLaunchctl, 0755);
  write("/Applications/Orrin.app/Contents/ServerRoot/usr/sbin/harlowctl", kStandInHead, 0755);
  write("/etc/tessel/httpd_tessel.conf", "# the master copy\n");
  configure("<key>ServerPort</key><integer>8080</integer>");
}

Sandbox::~Sandbox() {
  std::error_code ignored;
  fs::remove_all(root, ignored);
}

std::vector<std::string> Sandbox::wrap(const std::vector<std::string>& command) const {
  std::vector<std::string> whole;
  if (hasNamespaces()) {
    std::istringstream words(
        "bwrap --die-with-parent --new-session --unshare-pid --unshare-net --unshare-ipc "
        "--unshare-uts --dev /dev --proc /proc --hostname");
    for (std::string word; words >> word;) whole.push_back(word);
    whole.insert(whole.begin() + 1, {"--bind", root, "/"});
    whole.emplace_back(kHostName);
    whole.insert(whole.end(), mounts.begin(), mounts.end());
    if (user != 0 || geteuid() != 0) {
      whole.insert(whole.end(), {"--unshare-user", "--uid", std::to_string(user), "--gid",
                                 std::to_string(user)});
    }
    if (user == 0) whole.insert(whole.end(), {"--cap-add", "ALL"});
    whole.emplace_back("--");
  } else {
    const std::string id = std::to_string(user);
    whole = {"chroot", "--userspec=" + id + ":" + id, root};
  }
  whole.insert(whole.end(), {"/bin/env", "-i"});
  whole.insert(whole.end(), environment.begin(), environment.end());
  whole.insert(whole.end(), command.begin(), command.end());
  return whole;
}

Outcome Sandbox::run(const std::vector<std::string>& command) const {
  return execute(wrap(command));
}

Outcome Sandbox::tesselctl(std::vector<std::string> arguments) const {
  arguments.insert(arguments.begin(), "/usr/sbin/tesselctl");
  return run(arguments);
}

Outcome Sandbox::keychain(std::vector<std::string> arguments) const {
  arguments.insert(arguments.begin(), "/usr/sbin/tessel-keychain");
  return run(arguments);
}

Outcome Sandbox::shell(const std::string& script) const { return run({"/bin/sh", "-c", script}); }

std::string Sandbox::merged(const std::string& arguments) const {
  return shell("exec 2>&1; /usr/sbin/tesselctl " + arguments).output;
}

std::string Sandbox::outside(std::string_view path) const { return root + std::string(path); }

void Sandbox::write(std::string_view path, std::string_view content, mode_t mode) const {
  const fs::path file = outside(path);
  fs::create_directories(file.parent_path());
  fs::remove(file);  // a file of the base is shared with other sandboxes
  std::ofstream(file, std::ios::binary) << content;
  chmod(file.c_str(), mode);
}

std::string Sandbox::read(std::string_view path) const {
  std::ostringstream content;
  content << std::ifstream(outside(path), std::ios::binary).rdbuf();
  return content.str();
}

bool Sandbox::exists(std::string_view path) const {
  return fs::symlink_status(outside(path)).type() != fs::file_type::not_found;
}

mode_t Sandbox::mode(std::string_view path) const {
  struct stat status {};
  return lstat(outside(path).c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

std::string Sandbox::linkTarget(std::string_view path) const {
  std::error_code failure;
  return fs::read_symlink(outside(path), failure).string();
}

std::vector<std::string> Sandbox::names(std::string_view folder) const {
  std::vector<std::string> found;
  for (const auto& entry : fs::directory_iterator(outside(folder))) {
    found.push_back(entry.path().filename());
  }
  std::sort(found.begin(), found.end());
  return found;
}

void Sandbox::makeFolder(std::string_view path) const { fs::create_directories(outside(path)); }

void Sandbox::makeLink(std::string_view path, std::string_view target) const {
  fs::create_symlink(target, outside(path));
}

void Sandbox::remove(std::string_view path) const { fs::remove_all(outside(path)); }

void Sandbox::configure(std::string_view entries) const {
  write("/etc/tessel/tessel.plist", dictionary(entries));
}

void Sandbox::setEnvironment(std::string_view entries) const {
  write("/etc/apache2/env.plist", dictionary(entries));
}

std::string Sandbox::environmentValue(const std::string& key) const {
  const std::string list = read("/etc/apache2/env.plist");
  const std::string opening = "<key>" + key + "</key>\n\t<string>";
  const size_t found = list.find(opening);
  if (found == std::string::npos) return "(none)";
  const size_t begin = found + opening.size();
  return list.substr(begin, list.find("</string>", begin) - begin);
}

void Sandbox::setApacheLoaded(bool loaded) const {
  loaded ? write("/run/apache.loaded", "") : remove("/run/apache.loaded");
}

bool Sandbox::apacheLoaded() const { return exists("/run/apache.loaded"); }

std::string Sandbox::calls() const {
  std::string recorded = read("/var/log/calls");
  remove("/var/log/calls");
  return recorded;
}

std::string dictionary(std::string_view entries) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" +
         std::string(entries) + "</dict></plist>\n";
}

std::string red(std::string_view message) {
  return "\033[31mError: " + std::string(message) + "\033[0m";
}

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}
