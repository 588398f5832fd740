#include "tests/faults/trace.h"

#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <utility>

const char* const kTracedCalls =
    "trace=/^(open|creat|mk|f?chmod|f?l?chown|p?read|getdents|p?write|f?truncate|f(data)?sync"
    "|rename|link|unlink|symlink|rmdir|flock|f?l?setxattr|utime|fallocate|copy_file|sendfile|splice"
    "|clone|v?fork|wait4|close$|exit_group)";

bool Call::changes() const {
  static const std::regex kReads("p?read.*|getdents.*|close");
  if (name.starts_with("open")) return creates() || truncates();
  return !std::regex_match(name, kReads) && (name != "write" || !path.empty());
}

namespace {

// What was done to a file that is then renamed was meant for its new name.
void retarget(std::vector<Call>& calls, const Call& renaming) {
  for (Call& earlier : calls) {
    if (earlier.target == renaming.source) earlier.target = renaming.path;
  }
}

}  // namespace

std::vector<Call> parseTrace(std::string_view trace) {
  static const std::regex kCall(R"re((\w+)\((.*)\) += (-?\d+|\?).*)re");
  static const std::regex kQuoted(R"re("((?:[^"\\]|\\.)*)")re");
  std::vector<Call> calls;
  std::map<std::string, int> times;
  std::map<std::string, size_t> openings;  // by descriptor
  std::istringstream lines{std::string(trace)};
  for (std::string line; std::getline(lines, line);) {
    std::smatch parts;
    if (!std::regex_match(line, parts, kCall)) continue;
    const std::string arguments = parts[2];
    const std::string result = parts[3];
    Call call{parts[1], ++times[parts[1]], line, {}, {}, {}, {}, result.starts_with('-')};
    if (std::isdigit(arguments[0]) != 0 && call.name != "wait4") {
      const auto opening = openings.find(arguments.substr(0, arguments.find_first_of(",)")));
      if (opening != openings.end()) {
        Call& opened = calls[opening->second];
        call.path = opened.path;
        if (opened.use.empty()) opened.use = call.name;
        if (call.name == "close") openings.erase(opening);
      }
    } else {
      const std::sregex_iterator names(arguments.begin(), arguments.end(), kQuoted);
      // The last name is the one that comes into being.
      for (auto name = names; name != std::sregex_iterator(); ++name) {
        call.source = std::exchange(call.path, (*name)[1]);
      }
      if (call.name.starts_with("open") && !call.failed) openings[result] = calls.size();
    }
    call.target = call.path;
    if (call.name.starts_with("rename")) retarget(calls, call);
    calls.push_back(call);
  }
  return calls;
}

bool isBetweenLikes(const std::vector<Call>& calls, const Call& call) {
  if (&call == &calls.front() || &call == &calls.back()) return false;
  const auto isLike = [&](const Call& other) {
    return other.name == call.name && other.path == call.path;
  };
  return isLike(*(&call - 1)) && isLike(*(&call + 1));
}

std::string firstCallBeforeItsSync(const std::vector<Call>& calls) {
  // The sanitizers write to pipes of their own.
  static const std::regex kTells("(write\\([12],|clone|v?fork|exit_group).*");
  std::set<std::string> dirty;
  const auto folder = [](const std::string& path) {
    return std::filesystem::path(path).parent_path().string();
  };
  for (const Call& call : calls) {
    const bool tells = std::regex_match(call.line, kTells);
    const bool renames = call.name.starts_with("rename");
    const auto early = renames ? dirty.find(call.source) : tells ? dirty.begin() : dirty.end();
    if (early != dirty.end()) return call.line + " before the sync of " + *early;
    if (call.failed || call.path.empty() || !(call.changes() || call.truncates())) continue;
    if (call.name == "fsync" || call.name == "fdatasync") {
      dirty.erase(call.path);
    } else if (renames || call.name.starts_with("unlink") || call.name == "rmdir") {
      dirty.erase(call.path);
      dirty.insert(folder(call.path));
      if (renames) dirty.insert(folder(call.source));
    } else if (call.name.starts_with("symlink") || call.name.starts_with("mk")) {
      dirty.insert(folder(call.path));
    } else if (call.name != "flock") {
      dirty.insert(call.path);
      if (call.creates() || call.name == "link") dirty.insert(folder(call.path));
    }
  }
  return {};
}
