// tessel-host WORD ARGUMENT...
// The administrator's tool for what this host adds to Tessel. Exit status: 3 for wrong usage, which
// monitoring plug-ins call unknown and the words do not use; theirs otherwise.
#include <functional>
#include <string>
#include <vector>

#include "host/debian/tessel_host/check.h"
#include "host/debian/tessel_host/grant.h"
#include "host/debian/tessel_host/locks.h"
#include "host/debian/tessel_host/renew.h"
#include "platform/process/console.h"
#include "platform/process/process.h"

namespace {

using Words = std::vector<std::string>;

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kUnknown = 3;
constexpr const char* kUsage =
    "Usage: tessel-host check [--quiet]\n"
    "       tessel-host grant [--undo] FOLDER\n"
    "       tessel-host locks\n"
    "       tessel-host unlock PATH\n"
    "       tessel-host renew";

// What the words ask for; nothing when they are not understood.
std::function<int()> commandOf(const Words& words) {
  if (words.empty()) return nullptr;
  const size_t count = words.size();
  if (words[0] == "check" && (count == 1 || (count == 2 && words[1] == "--quiet"))) {
    return [isQuiet = count == 2] { return tessel::check(isQuiet); };
  }
  if (words[0] == "grant" && count == 2 && !words[1].starts_with('-')) {
    return [folder = words[1]] { return tessel::grant(folder); };
  }
  if (words[0] == "grant" && count == 3 && words[1] == "--undo") {
    return [folder = words[2]] { return tessel::undoGrant(folder); };
  }
  if (words[0] == "locks" && count == 1) return tessel::listLocks;
  if (words[0] == "unlock" && count == 2 && !words[1].starts_with('-')) {
    return [path = words[1]] { return tessel::unlock(path); };
  }
  if (words == Words{"renew"}) return tessel::renew;
  return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  if (!tessel::prepareProcess()) return kFailed;
  const Words words(argv + (argc > 0 ? 1 : 0), argv + argc);
  if (words == Words{"-h"} || words == Words{"--help"}) {
    tessel::printLine(kUsage);
    return kDone;
  }
  const auto command = commandOf(words);
  if (!command) {
    tessel::printErrorLine(kUsage);
    return kUnknown;
  }
  if (tessel::effectiveUserID() != 0) {
    tessel::printErrorLine("tessel-host: must run as root");
    return kUnknown;
  }
  return command();
}
