#include "control/tessel_ctl.h"
#include "platform/base/text.h"
#include "platform/process/console.h"

namespace tessel {

namespace {

const std::string* firstValue(const RecordAttributes& attributes, const char* attribute) {
  const auto found = attributes.find(attribute);
  return found == attributes.end() ? nullptr : &found->second.front();
}

// The columns of printf's "%-35s %-35s %-7s\n": padded by bytes, never cut.
std::string row(const std::string& name, const std::string& path, const std::string& webdav) {
  return padded(name, 35) + " " + padded(path, 35) + " " + padded(webdav, 7) + "\n";
}

}  // namespace

std::optional<std::vector<ShareSummary>> TesselCtl::sharePointDictionaries() const {
  const auto session = DirectorySession::open();
  if (!session) return std::nullopt;
  const auto node = session->localNode();
  if (!node) return std::nullopt;
  const auto query = node->querySharePoints();
  if (!query) return std::nullopt;

  std::vector<ShareSummary> summaries;
  const auto records = query->results();
  if (!records) return summaries;
  for (const DirectoryRecord& record : *records) {
    const auto details = record.details();
    if (!details) continue;
    const std::string* name = firstValue(*details, kRecordNameAttribute);
    const std::string* path = firstValue(*details, kDirectoryPath);
    if (name == nullptr || path == nullptr) continue;
    const std::string* flag = firstValue(*details, kWebDAVShared);
    const bool isWebDAV = flag != nullptr && leadingInteger(*flag) == 1;
    summaries.push_back({*name, *path, isWebDAV ? "Yes" : "No"});
  }
  return summaries;
}

void TesselCtl::showShares() const {
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
