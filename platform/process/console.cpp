#include "platform/process/console.h"

#include <unistd.h>

#include <string>

#include "platform/files/file_descriptor.h"

namespace tessel {

void print(std::string_view text) { (void)writeAll(STDOUT_FILENO, text); }

void printLine(std::string_view text) { print(std::string(text) + "\n"); }

void printErrorLine(std::string_view text) {
  (void)writeAll(STDERR_FILENO, std::string(text) + "\n");
}

void reportError(std::string_view message) {
  printErrorLine("\033[31mError: " + std::string(message) + "\033[0m");
}

}  // namespace tessel
