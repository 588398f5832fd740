#include "host/debian/tessel_host/locks.h"

#include <sys/resource.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <ctime>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "host/debian/mod_tessel/state/state.h"
#include "host/debian/tessel_host/folder_access.h"
#include "host/debian/tessel_host/granted_folders.h"
#include "host/debian/tessel_host/service.h"
#include "platform/base/system_error.h"
#include "platform/base/text.h"
#include "platform/directory/directory.h"
#include "platform/process/as_user.h"
#include "platform/process/console.h"
#include "shares/share_point.h"

namespace tessel {

namespace {

constexpr int kDone = 0;
constexpr int kFailed = 1;

int fail(const std::string& message) {
  printErrorLine("tessel-host: " + message);
  return kFailed;
}

std::string counted(size_t number) {
  return std::to_string(number) + (number == 1 ? " lock" : " locks");
}

// What Apache's user says to root: texts, each ended by a zero byte. Root takes nothing for granted
// in them, since whoever has taken Apache over can write whatever he likes into the database.
class Message {
 public:
  void add(std::string_view text) { bytes_.append(text.substr(0, text.find('\0'))) += '\0'; }
  void add(std::int64_t number) { add(std::to_string(number)); }
  void add(const Lock& lock) {
    add(lock.path);
    add(lock.user);
    add(lock.created);
    add(lock.expires);
    for (const bool flag : {lock.isExclusive, lock.isInfinite, lock.isOnName, lock.isGone}) {
      add(std::int64_t{flag});
    }
  }
  std::string bytes() && { return std::move(bytes_); }

 private:
  std::string bytes_;
};

class MessageReader {
 public:
  explicit MessageReader(std::string_view bytes) : bytes_(bytes) {}

  bool isAtEnd() const { return bytes_.empty(); }
  std::string text() {
    const std::string_view text = bytes_.substr(0, bytes_.find('\0'));
    bytes_.remove_prefix(std::min(text.size() + 1, bytes_.size()));
    return std::string(text);
  }
  std::int64_t number() {
    std::int64_t number = 0;
    const std::string digits = text();
    (void)std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return number;
  }
  Lock lock() {
    Lock lock;
    lock.path = text();
    lock.user = text();
    lock.created = number();
    lock.expires = number();
    for (bool* flag : {&lock.isExclusive, &lock.isInfinite, &lock.isOnName, &lock.isGone}) {
      *flag = number() != 0;
    }
    return lock;
  }
  std::vector<Lock> locks() {
    std::vector<Lock> locks;
    while (!isAtEnd()) locks.push_back(lock());
    return locks;
  }

 private:
  std::string_view bytes_;
};

// What a database that was made to take all of it can have of the machine.
void limitResources() {
  constexpr rlim_t kMostMemory = 1024UL * 1024 * 1024;  // bytes
  constexpr rlim_t kMostTime = 60;                      // seconds of the processor
  const rlimit memory{kMostMemory, kMostMemory};
  const rlimit time{kMostTime, kMostTime};
  const rlimit none{0, 0};
  (void)::setrlimit(RLIMIT_AS, &memory);
  (void)::setrlimit(RLIMIT_CPU, &time);
  (void)::setrlimit(RLIMIT_CORE, &none);
}

// What `function` says of the state, after an empty text; or the reason why it cannot. Nothing
// is asked, and no database made, when there is none yet.
template <typename Function>
Result<std::string> askState(Function&& function) {
  const auto answer = runAsUser(kApacheUser, apacheProcess(), [&]() -> std::string {
    limitResources();
    Message message;
    const auto database = identityAt(std::string(kStateFolder) + "/current");
    Status asked = database ? Status() : database.error();
    if (database && database->exists()) {
      State::Options options;
      options.log = [](const std::string& line) { printErrorLine("tessel-host: " + shown(line)); };
      State state(std::move(options));
      message.add("");
      asked = function(state, message);
    } else if (asked) {
      message.add("");
    }
    if (asked) return std::move(message).bytes();
    Message failure;
    failure.add(asked.error().description);
    return std::move(failure).bytes();
  });
  if (!answer) return answer.error();
  const std::string reason = MessageReader(*answer).text();
  if (!reason.empty() || answer->empty()) return Error{shown(reason)};
  return answer->substr(1);
}

// The folders of the shares, without links, and the shares' names.
std::vector<SharePoint> sharedFolders() {
  std::vector<SharePoint> shares;
  const auto node = openLocalNode();
  const auto records = node ? node->sharePoints() : node.error();
  if (!records && !isAbsence(records.error().code)) {
    printErrorLine("tessel-host: the shares are not named: " + shown(records.error().description));
  }
  if (!records) return shares;
  for (const DirectoryRecord& record : *records) {
    const auto details = record.details();
    auto share = details ? sharePointOf(*details) : std::nullopt;
    if (!share || !share->webdav || !share->folder.starts_with('/')) continue;
    std::error_code failure;
    const auto folder = std::filesystem::canonical(share->folder, failure);
    if (failure) continue;
    share->folder = folder.string();
    shares.push_back(*std::move(share));
  }
  return shares;
}

// The names of the innermost shares that a path lies in.
std::string sharesOf(const std::string& path, const std::vector<SharePoint>& shares) {
  std::string names;
  size_t innermost = 0;
  for (const SharePoint& share : shares) {
    if (path != share.folder && !isBelow(path, share.folder)) continue;
    if (share.folder.size() < innermost) continue;
    const bool isOneMore = share.folder.size() == innermost && !names.empty();
    if (isOneMore) {
      names += ',';
    } else {
      names.clear();
    }
    names += shown(share.name);
    innermost = share.folder.size();
  }
  return names.empty() ? "-" : names;
}

std::string localTime(std::time_t time) {
  std::array<char, 32> text{};
  tm parts{};
  if (::localtime_r(&time, &parts) == nullptr ||
      std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts) == 0) {
    return "?";
  }
  return text.data();
}

using Row = std::array<std::string, 7>;

Row rowOf(const Lock& lock, const std::vector<SharePoint>& shares) {
  const char* const remark = lock.isGone     ? "  (the file is gone)"
                             : lock.isOnName ? "  (no file yet)"
                                             : "";
  return {lock.user.empty() ? "-" : shown(lock.user),
          lock.isExclusive ? "exclusive" : "shared",
          lock.isInfinite ? "infinity" : "0",
          localTime(lock.created),
          localTime(lock.expires),
          sharesOf(lock.path, shares),
          shellWord(lock.path) + remark};
}

void printTable(const std::vector<Row>& rows) {
  // One long name shall not push all others to the right.
  constexpr size_t kWidest = 20;
  std::array<size_t, std::tuple_size_v<Row>> widths{};
  for (const Row& row : rows) {
    for (size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], std::min(row[i].size(), kWidest));
    }
  }
  for (const Row& row : rows) {
    std::string line;
    for (size_t i = 0; i + 1 < row.size(); ++i) line += padded(row[i], widths[i]) + "  ";
    printLine(line + row.back());
  }
}

// The path by which the state knows what lies there, or lay.
Result<std::string> knownPath(const std::string& path) {
  std::error_code failure;
  std::filesystem::path absolute = std::filesystem::absolute(path, failure);
  if (!failure) absolute = std::filesystem::weakly_canonical(absolute, failure);
  if (failure) return Error{shown(path) + ": " + failure.message()};
  std::string known = absolute.string();
  while (known.size() > 1 && known.ends_with('/')) known.pop_back();
  return known;
}

// What holds for a path without being on it.
std::string remarkOn(const std::string& path, const std::vector<Lock>& others) {
  size_t below = 0;
  for (const Lock& lock : others) {
    if (!lock.isGone && lock.path != path && covers(lock, path)) {
      return "it is locked with the folder " + shellWord(lock.path) + " by " + shown(lock.user) +
             ". To end that lock, run: tessel-host unlock " + shellWord(lock.path);
    }
    if (isBelow(lock.path, path)) ++below;
  }
  if (below == 0) return "";
  return counted(below) + " of what is in it " + (below == 1 ? "stays" : "stay") +
         ". See them with: tessel-host locks";
}

}  // namespace

int listLocks() {
  const auto answer = askState([](State& state, Message& message) -> Status {
    const auto locks = state.allLocks();
    if (!locks) return locks.error();
    for (const Lock& lock : *locks) message.add(lock);
    return {};
  });
  if (!answer) return fail(answer.error().description);
  const std::vector<Lock> locks = MessageReader(*answer).locks();
  if (locks.empty()) {
    printLine("Nothing is locked");
    return kDone;
  }
  const std::vector<SharePoint> shares = sharedFolders();
  std::vector<Row> rows{{"USER", "KIND", "DEPTH", "SINCE", "UNTIL", "SHARE", "PATH"}};
  for (const Lock& lock : locks) rows.push_back(rowOf(lock, shares));
  printTable(rows);
  return kDone;
}

int unlock(const std::string& path) {
  const auto known = knownPath(path);
  if (!known) return fail(known.error().description);
  const auto answer = askState([&](State& state, Message& message) -> Status {
    const auto ended = state.removeLocksOn(*known);
    if (!ended) return ended.error();
    message.add(std::int64_t{*ended});
    const auto others = state.allLocks();
    if (!others) return others.error();
    for (const Lock& lock : *others) {
      if (covers(lock, *known) || isBelow(lock.path, *known)) message.add(lock);
    }
    return {};
  });
  if (!answer) return fail(answer.error().description);
  MessageReader reader(*answer);
  const std::int64_t ended = reader.number();
  const std::string remark = remarkOn(*known, reader.locks());
  const std::string name = shellWord(*known);
  if (ended == 0) {
    return fail(name + " has no lock" + (remark.empty() ? "" : " of its own; " + remark));
  }
  printLine("Ended " + counted(static_cast<size_t>(ended)) + " on " + name);
  if (!remark.empty()) printLine(name + ": " + remark);
  return kDone;
}

}  // namespace tessel
