// This process: its streams and signals, who it runs as and what surrounds it.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

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

uid_t effectiveUserID();

// The file that this process runs, as an absolute path without links. None when it is gone.
std::optional<std::string> executablePath();

// The two-letter territory (ISO 3166-1) of the current locale, which is the first of LC_ALL and
// LANG that is set and not empty, whether or not it is installed: AT for de_AT.UTF-8. None for
// locales without one (C, POSIX, es_419).
std::optional<std::string> localeCountryCode();

}  // namespace tessel
