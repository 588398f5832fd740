// The programs that this process starts: by absolute path with an argument vector, never through a
// shell. Each is waited for; none is ever timed out.
#pragma once

#include <string>
#include <vector>

#include "platform/base/result.h"

namespace tessel {

// What a child's standard output and error are connected to. Standard input is always inherited.
enum class Streams { Discarded, Inherited };

// Starts the program and waits for its end. Returns its exit status, 128 plus the signal's number
// for a child that a signal ended, or an error that names the path and the reason when it cannot be
// started. The program started is the host's adapter for it where there is one: the executable at
// /usr/libexec/tessel/host followed by `launchPath`. The argument vector is the same either way:
// `launchPath` and then `arguments`.
Result<int> runProgram(const std::string& launchPath, const std::vector<std::string>& arguments,
                       Streams streams);

struct CapturedOutput {
  std::string standardOutput;
  std::string standardError;
};

// The same, with everything that the program writes to its two streams collected while it runs, so
// that no amount of output blocks it. Its exit status is not reported.
Result<CapturedOutput> captureProgram(const std::string& launchPath,
                                      const std::vector<std::string>& arguments);

}  // namespace tessel
