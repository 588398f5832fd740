// The entries of a folder that its page shows: all of them in order, or the first so many where
// there are more, since a page of a million lines would help nobody. What is kept of them is
// bounded, whatever the folder's size.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/debian/mod_tessel/pages/order.h"

namespace tessel {

struct PageEntry {
  std::string name;
  std::string key;  // naturalKey()
  bool isFolder = false;
  std::uint64_t size = 0;     // of a file
  std::int64_t modified = 0;  // nanoseconds since 1970
};

class PageEntries {
 public:
  static constexpr size_t kMostShown = 20'000;

  explicit PageEntries(Order order, size_t most = kMostShown) : order_(order), most_(most) {}

  void add(std::string_view name, bool isFolder, std::uint64_t size, std::int64_t modified);

  // Those to be shown: folders first, then in the order that was asked for, and by name where that
  // does not decide. To be called once, last.
  std::vector<PageEntry> take();

  std::uint64_t folders() const { return folders_; }
  std::uint64_t files() const { return files_; }
  // Of all files; more than a number can hold counts as the largest.
  std::uint64_t size() const { return size_; }

 private:
  bool comesBefore(const PageEntry& one, const PageEntry& other) const;

  Order order_;
  size_t most_;
  std::uint64_t folders_ = 0;
  std::uint64_t files_ = 0;
  std::uint64_t size_ = 0;
  std::vector<PageEntry> kept_;  // a heap, its top the last of them, once there are `most_`
};

}  // namespace tessel
