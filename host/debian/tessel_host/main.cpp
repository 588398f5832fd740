// tessel-host WORD ARGUMENT...
// The administrator's tool for what this host adds to Tessel. Exit status: 64 for wrong usage,
// which the words do not use; theirs otherwise.
#include <string>
#include <vector>

#include "host/debian/tessel_host/check.h"
#include "platform/process/console.h"
#include "platform/process/process.h"

namespace {

using Words = std::vector<std::string>;

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kUnknown = 3;
constexpr const char* kUsage = "Usage: tessel-host check [--quiet]";

}  // namespace

int main(int argc, char** argv) {
  if (!tessel::prepareProcess()) return kFailed;
  const Words words(argv + (argc > 0 ? 1 : 0), argv + argc);
  if (words == Words{"-h"} || words == Words{"--help"}) {
    tessel::printLine(kUsage);
    return kDone;
  }
  const bool checks = words == Words{"check"};
  const bool checksQuietly = words == Words{"check", "--quiet"};
  if (!checks && !checksQuietly) {
    tessel::printErrorLine(kUsage);
    return kUnknown;
  }
  if (tessel::effectiveUserID() != 0) {
    tessel::printErrorLine("tessel-host: must run as root");
    return kUnknown;
  }
  return tessel::check(checksQuietly);
}
