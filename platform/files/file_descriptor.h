// Owns one file descriptor.
#pragma once

#include <unistd.h>

#include <string_view>
#include <utility>

#include "platform/base/result.h"

namespace tessel {

class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept
      : descriptor_(std::exchange(other.descriptor_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
      reset();
      descriptor_ = std::exchange(other.descriptor_, -1);
    }
    return *this;
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() { reset(); }

  int get() const { return descriptor_; }
  explicit operator bool() const { return descriptor_ >= 0; }
  // Hands the descriptor over.
  int release() { return std::exchange(descriptor_, -1); }
  void reset() {
    if (descriptor_ >= 0) ::close(descriptor_);
    descriptor_ = -1;
  }

 private:
  int descriptor_ = -1;
};

// Writes all of the bytes, waiting where the descriptor would block. The error has errno(3) as its
// code; how much was written before it is not told.
Status writeAll(int descriptor, std::string_view bytes);

}  // namespace tessel
