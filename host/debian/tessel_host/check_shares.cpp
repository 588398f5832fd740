#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <string_view>

#include "host/debian/tessel_host/checks.h"
#include "host/debian/tessel_host/folder_access.h"
#include "platform/base/system_error.h"
#include "platform/base/text.h"
#include "platform/directory/directory.h"
#include "platform/directory/record_name.h"
#include "platform/process/as_user.h"
#include "shares/share_point.h"

namespace tessel {

namespace {

struct ServedShare {
  std::string file;    // the record's path
  std::string folder;  // absolute
};

const char* const kMendRecord = "Correct the file, or remove it";

// The records that Apache is to serve. What is wrong with the others is found here.
std::vector<ServedShare> servedShares(const DirectoryNode& node, Findings& findings) {
  std::vector<ServedShare> shares;
  std::map<std::string, std::string> fileOf;  // the first record of a name
  const auto records = node.sharePoints();
  if (!records) {
    notServing(findings, "the share points", shown(records.error().description),
               "Let root read the folder");
    return shares;
  }
  for (const DirectoryRecord& record : *records) {
    const std::string where = shown(record.path());
    const auto details = record.details();
    if (!details && details.error().code != 0 && !isAbsence(details.error().code)) {
      warn(findings, where, shown(details.error().description) + ", so it cannot be served",
           "Mend that; until then Apache answers with an error");
      continue;
    }
    if (!details) {
      warn(findings, where, "it is no record: " + shown(details.error().description), kMendRecord);
      continue;
    }
    const auto name = details->find(kRecordNameAttribute);
    if (name != details->end()) {
      const auto [first, isNew] = fileOf.emplace(name->second.front(), where);
      if (!isNew) {
        warn(findings, where,
             "it has the name " + shown(name->second.front()) + " as " + first->second + " has",
             "Give one of them another name inside, and its file the name after it");
      }
    }
    const auto flag = details->find(kWebDAVShared);
    if (flag == details->end() || leadingInteger(flag->second.front()) != 1) continue;
    const auto share = sharePointOf(*details);
    if (!share) {
      warn(findings, where, "it has no name or no folder, so it is not served", kMendRecord);
    } else if (!share->folder.starts_with('/')) {
      warn(findings, where,
           "its folder " + shown(share->folder) + " is not an absolute path, so it is not served",
           "Share it again by its absolute path: tesselctl share /PATH");
    } else {
      shares.push_back({record.path(), share->folder});
    }
  }
  return shares;
}

// As Apache's user finds them: what is wrong with the record and what with the folder of each, a
// text ended by a zero byte for each.
std::string obstacles(const std::vector<ServedShare>& shares) {
  std::string texts;
  for (const ServedShare& share : shares) {
    const bool isReadable = ::access(share.file.c_str(), R_OK) == 0;
    texts += isReadable ? "" : std::string(kApacheUser) + " may not read it, so it is not served";
    texts += '\0';
    texts += obstacleOnTheWayTo(share.folder);
    texts += '\0';
  }
  return texts;
}

std::string takeText(std::string_view& texts) {
  const std::string_view text = texts.substr(0, texts.find('\0'));
  texts.remove_prefix(std::min(text.size() + 1, texts.size()));
  return std::string(text);
}

}  // namespace

void checkShares(Findings& findings) {
  const auto node = openLocalNode();
  if (!node && !isAbsence(node.error().code)) {
    notServing(findings, "/var/lib/directory/local", std::strerror(node.error().code),
               "Mend that; until then Apache answers with an error");
    return;
  }
  if (!node) {
    warn(findings, "/var/lib/directory/local", "the host's directory service is missing",
         "Run: mkdir -p /var/lib/directory/local");
    return;
  }
  const auto shares = servedShares(*node, findings);
  const auto answer = runAsUser(kApacheUser, apacheProcess(), [&] { return obstacles(shares); });
  if (!answer) {
    warn(findings, kApacheUser, answer.error().description,
         "Reinstall Apache: its user is missing");
    return;
  }
  std::string_view texts = *answer;
  for (const ServedShare& share : shares) {
    const std::string record = takeText(texts);
    if (!record.empty()) {
      warn(findings, shown(share.file), record, "Run: chmod a+r " + shellWord(share.file));
    }
    const std::string folder = takeText(texts);
    if (folder.empty()) continue;
    const bool isClosed = folder.starts_with(kApacheUser);
    warn(findings, "the share " + shown(share.folder), folder,
         isClosed ? "Run: tessel-host grant " + shellWord(share.folder)
                  : "Mend that, or end the share: tesselctl unshare " + shellWord(share.folder));
  }
}

}  // namespace tessel
