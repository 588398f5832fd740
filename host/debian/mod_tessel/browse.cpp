#include "host/debian/mod_tessel/browse.h"

#include <apr_strings.h>
#include <http_config.h>
#include <http_core.h>
#include <http_log.h>
#include <http_protocol.h>
#include <http_request.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "host/debian/mod_tessel/files/folder_reader.h"
#include "host/debian/mod_tessel/files/listed.h"
#include "host/debian/mod_tessel/files/space.h"
#include "host/debian/mod_tessel/module.h"
#include "host/debian/mod_tessel/output.h"
#include "host/debian/mod_tessel/page_headers.h"
#include "host/debian/mod_tessel/pages/connect_page.h"
#include "host/debian/mod_tessel/pages/folder_page.h"
#include "host/debian/mod_tessel/pages/quantities.h"
#include "host/debian/mod_tessel/pages/share_list_page.h"
#include "platform/base/percent_encoding.h"

namespace tessel {

namespace {

constexpr const char* kListTitle = "Shared folders";

std::string_view queryOf(const request_rec* request) {
  return request->args == nullptr ? "" : request->args;
}

void beginPage(request_rec* request) {
  setPageHeaders(request, request->headers_out);
  ap_set_content_type(request, "text/html; charset=utf-8");
}

PageFrame frameOf(const request_rec* request, const ShareRequest& share, std::string_view title) {
  PageFrame frame;
  frame.title = title;
  frame.shares = share.prefix;
  if (request->user != nullptr) frame.user = request->user;
  return frame;
}

int redirect(request_rec* request, const std::string& path) {
  apr_table_set(request->headers_out, "Location", path.c_str());
  // Another kind of thing may have this name tomorrow.
  apr_table_setn(request->err_headers_out, "Cache-Control", "private, no-store");
  return HTTP_MOVED_TEMPORARILY;
}

bool endsWithSlash(const request_rec* request) {
  return std::string_view(request->uri).ends_with('/');
}

// What stands above the folder that is asked for, and the name of that.
std::vector<Step> trailTo(const ShareRequest& share, std::string_view& name) {
  std::vector<Step> trail{{share.prefix + "/", kListTitle}};
  std::string href = urlPath(share.prefix, share.name, "", true);
  name = share.name;
  std::string_view path = share.rest;
  for (;;) {
    path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()));
    if (path.empty()) return trail;
    trail.push_back({href, name});
    name = path.substr(0, path.find('/'));
    path.remove_prefix(name.size());
    appendPercentEncoded(href, name);
    href += '/';
  }
}

// Where the client has found this server. A proxy that speaks for it passes on what it was asked
// for; it ends TLS (see httpd_tessel_proxy.conf).
ServiceAddress addressOf(request_rec* request) {
  const char* forwarded = apr_table_get(request->headers_in, "X-Forwarded-Host");
  const bool isEncrypted = std::strcmp(ap_http_scheme(request), "https") == 0;
  if (!isEncrypted && forwarded != nullptr) {
    const std::string_view hosts = forwarded;
    return {true, std::string(hosts.substr(0, hosts.find(',')))};
  }
  const char* host = apr_table_get(request->headers_in, "Host");
  return {isEncrypted, host != nullptr ? host : ap_get_server_name_for_url(request)};
}

}  // namespace

int answerFolderPage(request_rec* request, const ShareRequest& share) {
  if (const int status = ap_discard_request_body(request); status != OK) return status;
  const Order order = orderOf(queryOf(request));
  if (!endsWithSlash(request)) {
    return redirect(request, urlPath(share.prefix, share.name, share.rest, true) + queryOf(order));
  }
  const FileDescriptor& folder = share.found.target.item;
  auto reader = FolderReader::open(folder);
  if (!reader) {
    ap_log_rerror(APLOG_MARK, APLOG_INFO, 0, request, "%s: %s", request->uri,
                  reader.error().description.c_str());
    return httpStatusOf(reader.error().code);
  }
  beginPage(request);
  if (request->header_only != 0) return OK;

  PageEntries entries(order);
  for (;;) {
    const auto entry = reader->next();
    if (!entry) {
      ap_log_rerror(APLOG_MARK, APLOG_ERR, 0, request, "%s: %s", request->uri,
                    entry.error().description.c_str());
      return HTTP_INTERNAL_SERVER_ERROR;
    }
    if (!*entry) break;
    const auto listed = listedEntry(folder, reader->descriptor(), **entry);
    if (!listed) {
      ap_log_rerror(APLOG_MARK, APLOG_WARNING, 0, request, "%s: an entry %s", request->uri,
                    listed.error().description.c_str());
    }
    if (!listed || !*listed) continue;
    const FileStatus& status = (*listed)->status;
    entries.add((*entry)->name, status.isFolder(), static_cast<std::uint64_t>(status.size),
                status.modified);
  }
  const std::vector<PageEntry> shown = entries.take();
  FolderPage page;
  std::string_view name;
  const std::vector<Step> trail = trailTo(share, name);
  page.frame = frameOf(request, share, name);
  page.frame.trail = trail;
  const std::string zone = "Times in " + timeZone(apr_time_sec(request->request_time));
  if (!shown.empty()) page.frame.footnote = zone;
  page.order = order;
  page.folders = entries.folders();
  page.files = entries.files();
  page.size = entries.size();
  page.shown = shown.size();
  if (const auto space = spaceOf(folder)) page.available = space->available;
  Output output(request, share.server->buffers);
  appendFolderStart(output.text(), page);
  for (const PageEntry& entry : shown) {
    appendFolderEntry(output.text(), entry);
    if (!output.sendIfFull()) return OK;
  }
  appendFolderEnd(output.text(), page);
  (void)output.sendRest();
  return OK;
}

int answerShareListPage(request_rec* request, const ShareRequest& share) {
  if (const int status = ap_discard_request_body(request); status != OK) return status;
  const bool isConnect = queryOf(request) == "connect";
  if (!endsWithSlash(request)) {
    return redirect(request, share.prefix + (isConnect ? "/?connect" : "/"));
  }
  const bool isShort = isConnect || request->header_only != 0;
  const auto shares = isShort ? std::vector<SharedFolder>() : share.server->folders.all();
  if (!shares) {
    ap_log_rerror(APLOG_MARK, APLOG_ERR, 0, request, "%s: %s", request->uri,
                  shares.error().description.c_str());
    return httpStatusOf(shares.error().code);
  }
  beginPage(request);
  if (request->header_only != 0) return OK;
  Output output(request);
  if (isConnect) {
    PageFrame frame = frameOf(request, share, "How to connect");
    frame.trail = {{share.prefix + "/", kListTitle}};
    appendConnectPage(output.text(), frame, addressOf(request));
    (void)output.sendRest();
    return OK;
  }
  std::vector<ListedShare> listed;
  for (const auto& [name, path] : *shares) {
    if (!hasURL(name)) continue;
    const auto folder = openSharedFolder(path);
    const auto reader = folder ? FolderReader::open(*folder) : folder.error();
    if (!reader && !isFailure(reader.error().code)) continue;
    const auto space = folder ? spaceOf(*folder) : std::nullopt;
    listed.push_back({name, space ? std::optional(space->available) : std::nullopt});
  }
  appendShareListPage(output.text(), frameOf(request, share, kListTitle), listed);
  (void)output.sendRest();
  return OK;
}

}  // namespace tessel
