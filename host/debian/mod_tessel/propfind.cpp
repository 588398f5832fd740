#include "host/debian/mod_tessel/propfind.h"

#include <apr_strings.h>
#include <fcntl.h>
#include <http_config.h>
#include <http_log.h>
#include <http_protocol.h>
#include <util_xml.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <unordered_map>

#include "host/debian/mod_tessel/content_type.h"
#include "host/debian/mod_tessel/files/folder_reader.h"
#include "host/debian/mod_tessel/files/hidden.h"
#include "host/debian/mod_tessel/files/listed.h"
#include "host/debian/mod_tessel/files/space.h"
#include "host/debian/mod_tessel/module.h"
#include "host/debian/mod_tessel/output.h"
#include "host/debian/mod_tessel/property_answer.h"
#include "host/debian/mod_tessel/property_request.h"
#include "platform/base/percent_encoding.h"

namespace tessel {

namespace {

constexpr const char* kXMLType = "text/xml; charset=\"utf-8\"";

// 0, 1, or the status to answer with.
int depthOf(const request_rec* request) {
  const char* depth = apr_table_get(request->headers_in, "Depth");
  if (depth == nullptr || ap_cstr_casecmp(depth, "infinity") == 0) return HTTP_FORBIDDEN;
  if (std::strcmp(depth, "0") == 0) return 0;
  return std::strcmp(depth, "1") == 0 ? 1 : HTTP_BAD_REQUEST;
}

int refuseInfinity(request_rec* request) {
  ap_set_content_type(request, kXMLType);
  request->status = HTTP_FORBIDDEN;
  ap_rputs(
      "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
      "<D:error xmlns:D=\"DAV:\"><D:propfind-finite-depth/></D:error>\n",
      request);
  return OK;
}

void beginAnswer(request_rec* request, const PropertyAnswer& answer, Output& output) {
  request->status = HTTP_MULTI_STATUS;
  ap_set_content_type(request, kXMLType);
  answer.appendStart(output.text());
}

void endAnswer(Output& output) {
  PropertyAnswer::appendEnd(output.text());
  (void)output.sendRest();
}

int refuseState(request_rec* request, const Error& error) {
  ap_log_rerror(APLOG_MARK, APLOG_ERR, 0, request, "%s", error.description.c_str());
  if (kindOf(error) != StateError::Busy) return HTTP_INTERNAL_SERVER_ERROR;
  apr_table_setn(request->err_headers_out, "Retry-After", "5");
  return HTTP_SERVICE_UNAVAILABLE;
}

// The end of an answer that cannot be completed: of the system's and of State's errors.
int refuse(request_rec* request, const Output& output, const Error& error) {
  // Nothing more can be said then, and the end of the connection cuts off what was.
  if (output.isBegun()) {
    ap_log_rerror(APLOG_MARK, APLOG_ERR, 0, request, "%s", error.description.c_str());
    return OK;
  }
  request->status = HTTP_OK;
  if (error.code >= static_cast<int>(StateError::Failed)) return refuseState(request, error);
  const int level = error.code == EACCES ? APLOG_INFO : APLOG_ERR;
  ap_log_rerror(APLOG_MARK, level, 0, request, "%s", error.description.c_str());
  return httpStatusOf(error.code);
}

// For what is there and cannot be looked at.
void appendFailure(std::string& text, std::string_view href, const Error& error) {
  PropertyAnswer::appendFailure(text, href, ap_get_status_line(httpStatusOf(error.code)));
}

struct Kept {
  std::vector<Property> properties;
  std::vector<Lock> locks;
};

// What is kept of a file or folder, as far as the answer needs it.
Result<Kept> keptOf(State& state, const PropertyAnswer& answer, const FileDescriptor& item,
                    const FileIdentity& identity) {
  Kept kept;
  if (!answer.needsProperties() && !answer.needsLocks()) return kept;
  auto path = pathOf(item.get());
  if (!path) return kept;
  const File file{*std::move(path), identity, {}};
  if (answer.needsProperties()) {
    auto properties = state.properties(file);
    if (!properties) return properties.error();
    kept.properties = *std::move(properties);
  }
  if (answer.needsLocks()) {
    auto locks = state.locks(file);
    if (!locks) return locks.error();
    kept.locks = *std::move(locks);
  }
  return kept;
}

using LocksByName = std::unordered_map<std::string, std::vector<const Lock*>>;

class FolderListing {
 public:
  FolderListing(request_rec* request, ShareRequest& share, PropertyAnswer& answer)
      : request_(request),
        share_(share),
        answer_(answer),
        output_(request, share.server->buffers),
        types_(request),
        top_(share.found.target) {}

  int run(bool withEntries) {
    if (const int status = readState(withEntries && top_.status.isFolder()); status != OK) {
      return status;
    }
    const bool isFolder = top_.status.isFolder();
    // A name on which there is a lock and nothing else is answered for as well.
    if (!top_.exists() && !isLockedName()) return HTTP_NOT_FOUND;
    std::optional<FolderReader> reader;
    if (withEntries && isFolder) {
      auto opened = FolderReader::open(top_.item);
      if (!opened) return refuse(request_, output_, opened.error());
      reader.emplace(*std::move(opened));
    }
    beginAnswer(request_, answer_, output_);
    base_ = urlPath(share_.prefix, share_.name, share_.rest, isFolder);
    appendTop();
    if (reader) {
      const Status listed = appendEntries(*reader);
      if (!listed) return refuse(request_, output_, listed.error());
      if (hasClientGone_) return OK;
    }
    endAnswer(output_);
    return OK;
  }

 private:
  State& state() const { return *share_.server->state; }

  bool isLockedName() const {
    return std::any_of(covering_.begin(), covering_.end(),
                       [this](const Lock& lock) { return lock.path == file_.path; });
  }

  int readState(bool withEntries) {
    const bool needsLocks = answer_.needsLocks() || !top_.exists();
    const bool needsState = answer_.needsProperties() || needsLocks || withEntries;
    if (!needsState) return OK;
    findPath();
    if (file_.path.empty()) return OK;
    if (answer_.needsProperties() && top_.exists()) {
      auto properties = state().properties(file_);
      if (!properties) return refuseState(request_, properties.error());
      properties_ = *std::move(properties);
    }
    if (needsLocks) {
      auto locks = state().locks(file_);
      if (!locks) return refuseState(request_, locks.error());
      covering_ = *std::move(locks);
    }
    if (!withEntries) return OK;
    if (answer_.needsProperties()) {
      auto inside = state().propertiesIn(file_.path);
      if (!inside) return refuseState(request_, inside.error());
      if (!inside->isEmpty()) inside_.emplace(*std::move(inside));
    }
    auto locks = state().locksIn(file_.path);
    if (!locks) return refuseState(request_, locks.error());
    entryLocks_ = *std::move(locks);
    for (const Lock& lock : entryLocks_) {
      locksByName_[lock.path.substr(lock.path.rfind('/') + 1)].push_back(&lock);
    }
    return OK;
  }

  void findPath() {
    file_.identity = top_.status.identity;
    if (top_.hasFolder()) {
      if (const auto folder = pathOf(top_.folder.get())) {
        file_.path = pathInside(*folder, top_.name);
      }
    } else if (top_.exists()) {
      if (auto path = pathOf(top_.item.get())) file_.path = *std::move(path);
    }
    if (share_.found.wasLed) {
      if (const auto top = pathOf(share_.folder.get())) {
        file_.linkedPath = *top + share_.rest;
        while (file_.linkedPath.ends_with('/')) file_.linkedPath.pop_back();
      }
    }
  }

  void appendTop() {
    ListedItem item;
    item.href = base_;
    item.isFile = top_.exists();
    item.isCollection = top_.status.isFolder();
    item.status = top_.status;
    item.properties = properties_;
    if (item.isCollection && answer_.needsSpace()) item.space = spaceOf(top_.item);
    space_ = item.space;
    setType(item, top_.name);
    locks_.clear();
    for (const Lock& lock : covering_) locks_.push_back(&lock);
    item.locks = locks_;
    answer_.appendResponse(output_.text(), item);
  }

  void setType(ListedItem& item, std::string_view name) {
    if (!answer_.needsContentType() || !item.isFile) return;
    item.contentType = item.isCollection ? kFolderType : types_.ofFile(name);
  }

  Status appendEntries(FolderReader& reader) {
    folder_ = reader.descriptor();
    for (;;) {
      const auto entry = reader.next();
      if (!entry) return entry.error();
      if (!*entry) break;
      if (Status appended = appendEntry(**entry); !appended) return appended;
      if (!sendIfFull()) return {};
    }
    if (Status appended = appendLockedNames(); !appended || hasClientGone_) return appended;
    for (const std::string& name : leftovers_) removeLeftover(top_.item, name);
    return {};
  }

  bool sendIfFull() {
    hasClientGone_ = !output_.sendIfFull();
    return !hasClientGone_;
  }

  Status appendEntry(const FolderReader::Entry& entry) {
    constexpr size_t kMostLeftovers = 16;
    if (isHiddenName(entry.name) && leftovers_.size() < kMostLeftovers) {
      leftovers_.emplace_back(entry.name);
    }
    const auto listed = listedEntry(top_.item, folder_, entry);
    if (!listed) {
      href_ = base_;
      appendPercentEncoded(href_, entry.name);
      appendFailure(output_.text(), href_, listed.error());
      return {};
    }
    if (!*listed) return {};
    ListedItem item;
    item.status = (*listed)->status;
    item.isCollection = item.status.isFolder();
    return appendItem(item, entry.name, (*listed)->target.get());
  }

  // Names on which there are locks and nothing else.
  Status appendLockedNames() {
    const Lock* last = nullptr;
    for (const Lock& lock : entryLocks_) {
      const bool isKnown = last != nullptr && last->path == lock.path;
      last = &lock;
      if (!lock.isOnName || isKnown) continue;
      const std::string name = lock.path.substr(lock.path.rfind('/') + 1);
      const auto status = statusIn(folder_, name.c_str());
      if (status || status.error().code != ENOENT) continue;  // it was among the entries
      ListedItem item;
      item.isFile = false;
      if (Status appended = appendItem(item, name.c_str(), nullptr); !appended) return appended;
      if (!sendIfFull()) return {};
    }
    return {};
  }

  // `target` is what a link of this name leads to, else null.
  Status appendItem(ListedItem& item, const char* name, const Place* target) {
    href_ = base_;
    appendPercentEncoded(href_, name);
    if (item.isCollection) href_ += '/';
    item.href = href_;
    setType(item, name);
    if (item.isCollection && space_ && item.status.identity.device == top_.status.identity.device) {
      item.space = space_;
    }
    entryProperties_.clear();
    locks_.clear();
    if (answer_.needsLocks()) {
      for (const Lock& lock : covering_) {
        if (lock.isInfinite) locks_.push_back(&lock);
      }
    }
    if (Status known = target != nullptr ? findKept(*target) : findKept(item, name); !known) {
      return known;
    }
    item.properties = entryProperties_;
    item.locks = locks_;
    answer_.appendResponse(output_.text(), item);
    return {};
  }

  // What is kept of an entry.
  Status findKept(const ListedItem& item, const char* name) {
    if (inside_ && item.isFile) {
      auto properties = inside_->of(name, item.status.identity);
      if (!properties) return properties.error();
      entryProperties_ = *std::move(properties);
    }
    if (!answer_.needsLocks() || locksByName_.empty()) return {};
    if (const auto own = locksByName_.find(name); own != locksByName_.end()) {
      locks_.insert(locks_.end(), own->second.begin(), own->second.end());
    }
    return {};
  }

  // And of what a link leads to.
  Status findKept(const Place& target) {
    auto kept = keptOf(state(), answer_, target.item, target.status.identity);
    if (!kept) return kept.error();
    entryProperties_ = std::move(kept->properties);
    targetLocks_ = std::move(kept->locks);
    for (const Lock& lock : targetLocks_) {
      const bool isKnown = std::any_of(locks_.begin(), locks_.end(), [&lock](const Lock* other) {
        return other->token == lock.token;
      });
      if (!isKnown) locks_.push_back(&lock);
    }
    return {};
  }

  request_rec* request_;
  ShareRequest& share_;
  PropertyAnswer& answer_;
  Output output_;
  ContentTypes types_;
  const Place& top_;
  std::string base_;
  int folder_ = -1;

  File file_;
  std::vector<Property> properties_;
  std::vector<Lock> covering_;
  std::vector<Lock> entryLocks_;
  LocksByName locksByName_;
  std::optional<FolderProperties> inside_;
  std::optional<Space> space_;
  std::vector<std::string> leftovers_;
  bool hasClientGone_ = false;
  // Of the entry at hand.
  std::string href_;
  std::vector<Property> entryProperties_;
  std::vector<const Lock*> locks_;
  std::vector<Lock> targetLocks_;
};

// A collection that is no folder on disk.
ListedItem virtualCollection(const request_rec* request, std::string_view href,
                             const PropertyAnswer& answer) {
  constexpr std::int64_t kNanoseconds = 1000;  // in a microsecond
  ListedItem item;
  item.href = href;
  item.isCollection = item.isVirtual = true;
  item.status.mode = S_IFDIR;
  item.status.modified = request->request_time * kNanoseconds;
  if (answer.needsContentType()) item.contentType = kFolderType;
  return item;
}

ListedItem listItem(const request_rec* request, const std::string& href, std::string_view prefix,
                    const PropertyAnswer& answer) {
  ListedItem list = virtualCollection(request, href, answer);
  list.displayName = prefix.substr(prefix.rfind('/') + 1);
  return list;
}

// Whether a client has set the name that is shown.
bool isNamed(const std::vector<Property>& properties) {
  return std::any_of(properties.begin(), properties.end(), [](const Property& property) {
    return property.space == "DAV:" && property.name == "displayname";
  });
}

// The collection of all shares and, if wanted, each of them. A share counts when its folder exists
// and a URL can hold its name.
int listShares(request_rec* request, ShareRequest& share, PropertyAnswer& answer, bool withShares) {
  Output output(request, share.server->buffers);
  const auto shares = withShares ? share.server->folders.all() : std::vector<SharedFolder>();
  if (!shares) return refuse(request, output, shares.error());
  beginAnswer(request, answer, output);
  const std::string base = share.prefix + "/";
  answer.appendResponse(output.text(), listItem(request, base, share.prefix, answer));
  for (const auto& [name, path] : *shares) {
    if (!hasURL(name)) continue;
    const auto folder = openSharedFolder(path);
    const auto status = folder ? statusOf(folder->get()) : folder.error();
    if (status ? !status->isFolder() : !isFailure(status.error().code)) continue;
    const std::string href = base + percentEncoded(name) + "/";
    if (!status) {
      appendFailure(output.text(), href, status.error());
      continue;
    }
    ListedItem item;
    item.href = href;
    item.isCollection = true;
    item.status = *status;
    const auto kept = keptOf(*share.server->state, answer, *folder, status->identity);
    if (!kept) return refuse(request, output, kept.error());
    item.properties = kept->properties;
    std::vector<const Lock*> locks;
    for (const Lock& lock : kept->locks) locks.push_back(&lock);
    item.locks = locks;
    if (!isNamed(kept->properties)) item.displayName = name;
    if (answer.needsContentType()) item.contentType = kFolderType;
    if (answer.needsSpace()) item.space = spaceOf(*folder);
    answer.appendResponse(output.text(), item);
    if (!output.sendIfFull()) return OK;
  }
  endAnswer(output);
  return OK;
}

// What a request asks for, or the status to answer with.
Result<PropertyRequest> askedBy(request_rec* request) {
  apr_xml_doc* document = nullptr;
  if (const int status = ap_xml_parse_input(request, &document); status != OK) {
    return Error{"its XML cannot be read", status};
  }
  auto asked = propertyRequest(document);
  if (!asked) {
    ap_log_rerror(APLOG_MARK, APLOG_INFO, 0, request, "PROPFIND: %s",
                  asked.error().description.c_str());
  }
  return asked;
}

}  // namespace

int answerPropfind(request_rec* request, ShareRequest& share) {
  const int depth = depthOf(request);
  if (depth == HTTP_BAD_REQUEST) return depth;
  const bool isFile = share.kind != ShareURL::Kind::List && !share.found.target.status.isFolder();
  if (depth == HTTP_FORBIDDEN && !isFile) return refuseInfinity(request);
  const auto asked = askedBy(request);
  if (!asked) return asked.error().code;
  PropertyAnswer answer(*asked, apr_time_sec(request->request_time));
  if (share.kind == ShareURL::Kind::List) return listShares(request, share, answer, depth == 1);
  if (share.found.isBelowFile) return HTTP_NOT_FOUND;
  return FolderListing(request, share, answer).run(depth == 1);
}

int answerEntrancePropfind(request_rec* request, std::string_view prefix) {
  const int depth = depthOf(request);
  if (depth == HTTP_BAD_REQUEST) return depth;
  if (depth == HTTP_FORBIDDEN) return refuseInfinity(request);
  const auto asked = askedBy(request);
  if (!asked) return asked.error().code;
  PropertyAnswer answer(*asked, apr_time_sec(request->request_time));
  Output output(request);
  beginAnswer(request, answer, output);
  answer.appendResponse(output.text(), virtualCollection(request, "/", answer));
  const std::string list = std::string(prefix) + "/";
  if (depth == 1) {
    answer.appendResponse(output.text(), listItem(request, list, prefix, answer));
  }
  endAnswer(output);
  return OK;
}

}  // namespace tessel
