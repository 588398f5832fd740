// The two output streams of a run. Nothing is buffered: a text has reached its descriptor when the
// call returns, so that both streams and those of child programs keep their order in one log.
// A text that cannot be written (a closed pipe, a full disk) is dropped: losing the reader must not
// stop an operation half-way.
#pragma once

#include <string_view>

namespace tessel {

// Writes the text to standard output as it is.
void print(std::string_view text);

// Writes the text and a newline to standard output.
void printLine(std::string_view text);

// Writes the text and a newline to standard error as they are.
void printErrorLine(std::string_view text);

// Writes the message to standard error in red as "Error: MESSAGE", then a newline.
void reportError(std::string_view message);

}  // namespace tessel
