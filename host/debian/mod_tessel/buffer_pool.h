// Memory for long answers, used again and again: what was given back last is taken first, since it
// is likely to be in the processor's cache still.
#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace tessel {

// For all threads of a process.
class BufferPool {
 public:
  explicit BufferPool(size_t capacity) : capacity_(capacity) { spare_.reserve(kMostSpare); }

  // An empty text with room for so many bytes.
  std::string take() {
    {
      const std::lock_guard lock(mutex_);
      if (!spare_.empty()) {
        std::string buffer = std::move(spare_.back());
        spare_.pop_back();
        return buffer;
      }
    }
    std::string buffer;
    buffer.reserve(capacity_);
    return buffer;
  }

  void giveBack(std::string buffer) {
    // What has grown far beyond its size is not worth keeping.
    if (buffer.capacity() < capacity_ || buffer.capacity() > 2 * capacity_) return;
    buffer.clear();
    const std::lock_guard lock(mutex_);
    if (spare_.size() < kMostSpare) spare_.push_back(std::move(buffer));
  }

 private:
  static constexpr size_t kMostSpare = 8;

  const size_t capacity_;
  std::mutex mutex_;
  std::vector<std::string> spare_;
};

}  // namespace tessel
