// Runs a target on every file of a folder, in place of a fuzzer.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/fuzz.h"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  std::vector<std::string> inputs;
  for (const auto& file : std::filesystem::directory_iterator(argv[1])) {
    std::ifstream stream(file.path(), std::ios::binary);
    inputs.emplace_back(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
  }
  if (LLVMFuzzerInitialize(&argc, &argv) != 0) return 1;
  for (const std::string& input : inputs) {
    // A copy that ends where its memory does, so that reading on is noticed.
    const std::vector<std::uint8_t> bytes(input.begin(), input.end());
    if (LLVMFuzzerTestOneInput(bytes.data(), bytes.size()) != 0) return 1;
  }
  std::cout << inputs.size() << " inputs\n";
  return inputs.empty() ? 1 : 0;
}
