// What every target uses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string_view>

// The target: runs once on the bytes, and ends the program when something is wrong.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
// Called once before.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace tessel::fuzz {

// What must hold whatever the bytes are.
inline void require(bool holds, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
  if (holds) return;
  std::cerr << file << ":" << line << ": does not hold\n";
  std::abort();
}

inline std::string_view text(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

// Cuts off what stands before the first byte 0xFF, which no UTF-8 text has, and returns it.
inline std::string_view takeField(std::string_view& bytes) {
  const std::string_view field = bytes.substr(0, bytes.find('\xFF'));
  bytes.remove_prefix(field.size() + (field.size() < bytes.size() ? 1 : 0));
  return field;
}

// Replaces /var/lib, for this process alone, by an empty folder in memory that goes away with the
// process. Ends the program with 77 ("skipped") where the machine grants no namespaces.
void usePrivateFolders();

// Puts these bytes into a file.
void writeFile(const char* path, std::string_view bytes);

}  // namespace tessel::fuzz
