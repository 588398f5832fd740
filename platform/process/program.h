// The programs that this process starts: by absolute path with an argument vector, never through a
// shell. Each is waited for. Any number of threads may call all of this.
#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "platform/base/result.h"

namespace tessel {

// What a child's standard output and error are connected to. Standard input is inherited.
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

// What a program with a time limit is given of this process's surroundings. Apart, it has an empty
// environment, every signal at its default and none blocked.
enum class Surroundings { Inherited, Apart };

struct Bounds {
  std::chrono::milliseconds limit;
  Surroundings surroundings = Surroundings::Apart;
  // For standard input; at most 4096 bytes, which fit a pipe without a reader (pipe(7)).
  std::string_view input = {};
};

struct ProgramEnd {
  int status = 0;  // as runProgram has it
  CapturedOutput output;
};

// Starts the program as runProgram does, in a process group of its own, and collects what it
// writes. When it has not ended within the limit, the whole group is killed and the error says so.
// What it leaves running in the background is not waited for, even if that holds the streams open.
Result<ProgramEnd> runBounded(const std::string& launchPath,
                              const std::vector<std::string>& arguments, const Bounds& bounds);

}  // namespace tessel
