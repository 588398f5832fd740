// The page of a folder: what is in it, as a table.
#pragma once

#include <optional>
#include <string>

#include "host/debian/mod_tessel/pages/entries.h"
#include "host/debian/mod_tessel/pages/page.h"

namespace tessel {

struct FolderPage {
  PageFrame frame;
  Order order;
  std::uint64_t folders = 0;  // in the folder, of which `shown` entries are on the page
  std::uint64_t files = 0;
  std::uint64_t size = 0;  // of the files, in bytes
  std::uint64_t shown = 0;
  std::optional<std::uint64_t> available;  // space in bytes
};

// Everything up to the first entry, the entries one by one, and everything after the last.
void appendFolderStart(std::string& page, const FolderPage& folder);
void appendFolderEntry(std::string& page, const PageEntry& entry);
void appendFolderEnd(std::string& page, const FolderPage& folder);

}  // namespace tessel
