#include "host/debian/mod_tessel/pages/entries.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "host/debian/mod_tessel/pages/natural_order.h"

namespace tessel {

void PageEntries::add(std::string_view name, bool isFolder, std::uint64_t size,
                      std::int64_t modified) {
  (isFolder ? folders_ : files_) += 1;
  if (!isFolder) size_ += std::min(size, std::numeric_limits<std::uint64_t>::max() - size_);
  const auto isBefore = [this](const PageEntry& one, const PageEntry& other) {
    return comesBefore(one, other);
  };
  PageEntry entry{std::string(name), naturalKey(name), isFolder, isFolder ? 0 : size, modified};
  if (kept_.size() < most_) {
    kept_.push_back(std::move(entry));
    if (kept_.size() == most_) std::make_heap(kept_.begin(), kept_.end(), isBefore);
    return;
  }
  if (most_ == 0 || !isBefore(entry, kept_.front())) return;
  std::pop_heap(kept_.begin(), kept_.end(), isBefore);
  kept_.back() = std::move(entry);
  std::push_heap(kept_.begin(), kept_.end(), isBefore);
}

std::vector<PageEntry> PageEntries::take() {
  std::sort(kept_.begin(), kept_.end(), [this](const PageEntry& one, const PageEntry& other) {
    return comesBefore(one, other);
  });
  return std::exchange(kept_, {});
}

bool PageEntries::comesBefore(const PageEntry& one, const PageEntry& other) const {
  if (one.isFolder != other.isFolder) return one.isFolder;
  const auto decide = [this](const auto& first, const auto& second) {
    return order_.isDescending ? second < first : first < second;
  };
  if (order_.by == Order::By::Size && one.size != other.size) return decide(one.size, other.size);
  if (order_.by == Order::By::Time && one.modified != other.modified) {
    return decide(one.modified, other.modified);
  }
  const bool isByName = order_.by == Order::By::Name;
  if (const int compared = one.key.compare(other.key); compared != 0) {
    return isByName ? decide(compared, 0) : compared < 0;
  }
  return isByName ? decide(one.name, other.name) : one.name < other.name;
}

}  // namespace tessel
