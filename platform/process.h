// This process and the programs that it starts. A program is started by absolute path with an
// argument vector, never through a shell, and waited for; none is ever timed out.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/error.h"

namespace tessel {

// To be called once, first thing in main: opens /dev/null for each of descriptors 0 to 2 that is
// closed, so that no file opened later is mistaken for a stream; ignores SIGPIPE and SIGXFSZ, so
// that a reader that goes away or a limit on file sizes does not end an operation half-way; and
// takes SIGCHLD back from a parent that ignored it, without which no child can be waited for.
// Returns false when a stream cannot be replaced.
bool prepareProcess();

// Whether signal 0 can be sent to the process, as kill(2) has it: to process 0, this process group,
// it always can; to one that may not be signalled it cannot.
bool processExists(pid_t process);

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
