// What strace recorded of one run: its calls that have to do with files and child programs.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct Call {
  std::string name;
  int time = 0;        // which of the run's calls of this name it is, from 1
  std::string line;    // as strace wrote it
  std::string path;    // the file or folder, by its name at the time; empty for a stream
  std::string target;  // the same, by the name under which a temporary file was published later
  std::string use;     // for an opening, the first call made with what was opened
  std::string source;  // for a renaming, the old name
  bool failed = false;

  bool creates() const { return line.find("O_CREAT") != std::string::npos; }
  bool truncates() const { return line.find("O_TRUNC") != std::string::npos; }
  // Whether it may change a file or folder, or hands over to a child program or the end.
  bool changes() const;
};

// For strace's -e trace=: every call that parseTrace() understands.
extern const char* const kTracedCalls;

std::vector<Call> parseTrace(std::string_view trace);

// Whether the calls before and after one of them do the same to the same file, so that they stand
// for it, too.
bool isBetweenLikes(const std::vector<Call>& calls, const Call& call);

// Judges whether whatever the run has told anybody survives a power cut: a file is synced before it
// is renamed into place, and nothing awaits its sync, folders included, when a line is printed, a
// child program is started or the run ends. Returns the first call that comes too early, with what
// was not synced; empty when there is none.
std::string firstCallBeforeItsSync(const std::vector<Call>& calls);
