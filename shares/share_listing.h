// The share points of the host, as a list and as the table that is printed of it.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tessel {

// A share point as it is listed.
struct ShareSummary {
  std::string name;
  std::string path;
  std::string iswebdav;  // "Yes" or "No"
};

// Every share point with a name and a path, in the directory's order. None when there is no
// directory service to ask; empty when its records cannot be read.
std::optional<std::vector<ShareSummary>> sharePointDictionaries();

// Prints them as a table. No directory service looks like no share points.
void showShares();

}  // namespace tessel
