#include "shares/share_listing.h"

#include "platform/base/text.h"
#include "platform/process/console.h"
#include "shares/share_point.h"

namespace tessel {

namespace {

// The columns of printf's "%-35s %-35s %-7s\n": padded by bytes, never cut.
std::string row(const std::string& name, const std::string& path, const std::string& webdav) {
  return padded(name, 35) + " " + padded(path, 35) + " " + padded(webdav, 7) + "\n";
}

}  // namespace

std::optional<std::vector<ShareSummary>> sharePointDictionaries() {
  const auto node = openLocalNode();
  if (!node) return std::nullopt;
  std::vector<ShareSummary> summaries;
  const auto records = node->sharePoints();
  if (!records) return summaries;
  for (const DirectoryRecord& record : *records) {
    const auto details = record.details();
    const auto share = details ? sharePointOf(*details) : std::nullopt;
    if (share) summaries.push_back({share->name, share->folder, share->webdav ? "Yes" : "No"});
  }
  return summaries;
}

void showShares() {
  const auto summaries = sharePointDictionaries();
  if (!summaries || summaries->empty()) {
    printLine("\nNo Share Points are configured");
    return;
  }
  std::string table =
      "\nConfigured Share Points:\n" + row("SHARE-POINT-NAME", "FILE-PATH", "WEBDAV?");
  for (const ShareSummary& summary : *summaries) {
    table += row(summary.name, summary.path, summary.iswebdav);
  }
  print(table);
}

}  // namespace tessel
