#pragma once

#include <string>

namespace tessel::fuzz {

// Runs SQL on a database that is not in a write-ahead log afterwards. The statements reach nothing
// but the file, and end; those that fail do not matter.
void runStatements(const char* path, const std::string& statements);

}  // namespace tessel::fuzz
