// Running a program for what it prints.
#pragma once

#include <string>
#include <vector>

namespace tessel {

// Runs a program and returns what it printed: trimmed standard output, directly followed by trimmed
// standard error. A stream that is not UTF-8 counts as empty. For a program that cannot be started,
// a text that names it and the reason.
std::string resultsFromCommand(const std::string& launchPath, const std::vector<std::string>& args);

}  // namespace tessel
