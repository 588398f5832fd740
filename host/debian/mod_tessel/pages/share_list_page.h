// The page of all shares.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/debian/mod_tessel/pages/page.h"

namespace tessel {

struct ListedShare {
  std::string name;
  std::optional<std::uint64_t> available;  // space in bytes
};

// In order, whatever theirs is.
void appendShareListPage(std::string& page, const PageFrame& frame,
                         const std::vector<ListedShare>& shares);

}  // namespace tessel
