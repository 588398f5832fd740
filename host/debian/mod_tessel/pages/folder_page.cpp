#include "host/debian/mod_tessel/pages/folder_page.h"

#include "host/debian/mod_tessel/pages/markup.h"
#include "host/debian/mod_tessel/pages/quantities.h"
#include "platform/base/percent_encoding.h"

namespace tessel {

namespace {

bool isEmpty(const FolderPage& folder) { return folder.folders + folder.files == 0; }

// "2 folders, 31 files of 1.2 GB".
std::string contentOf(const FolderPage& folder) {
  std::string text;
  if (folder.folders > 0) text += shownCount(folder.folders, "folder", "folders");
  if (folder.files > 0) {
    if (!text.empty()) text += ", ";
    text += shownCount(folder.files, "file", "files") + " of " + shownSize(folder.size);
  }
  return text;
}

void appendColumn(std::string& page, const FolderPage& folder, Order::By column,
                  std::string_view name) {
  page += "<th scope=\"col\"";
  if (folder.order.by == column) {
    page += folder.order.isDescending ? " aria-sort=\"descending\"" : " aria-sort=\"ascending\"";
  }
  // Asked for in full even where that is not needed: "?" alone would be this page again.
  page += "><a href=\"";
  const std::string query = queryOf(orderAfter(folder.order, column));
  appendText(page, query.empty() ? "?sort=name" : query);
  page += "\">";
  page += name;
  page += "</a></th>\n";
}

}  // namespace

void appendFolderStart(std::string& page, const FolderPage& folder) {
  appendPageStart(page, folder.frame);
  if (isEmpty(folder)) {
    page += "<p class=\"quiet\">This folder is empty.";
    if (folder.available) page += " " + shownSize(*folder.available) + " free.";
    page += "</p>\n";
    return;
  }
  const std::uint64_t total = folder.folders + folder.files;
  if (folder.shown < total) {
    page += "<p>This page shows the first " + std::to_string(folder.shown) + " of " +
            std::to_string(total) +
            " entries in this order. Another order shows others, and a WebDAV client shows all of "
            "them.</p>\n";
  }
  page += "<table>\n<caption>" + contentOf(folder);
  if (folder.available) page += "; " + shownSize(*folder.available) + " free";
  page += "</caption>\n<thead><tr>\n";
  appendColumn(page, folder, Order::By::Name, "Name");
  appendColumn(page, folder, Order::By::Size, "Size");
  appendColumn(page, folder, Order::By::Time, "Changed");
  page += "</tr></thead>\n<tbody>\n";
}

void appendFolderEntry(std::string& page, const PageEntry& entry) {
  const std::string_view slash = entry.isFolder ? "/" : "";
  page += entry.isFolder ? "<tr class=\"folder\"><th" : "<tr><th";
  page += R"( scope="row"><a href=")";
  appendPercentEncoded(page, entry.name);
  page += slash;
  page += "\">";
  appendName(page, entry.name);
  page += slash;
  page += "</a></th><td>";
  page += entry.isFolder ? "folder" : shownSize(entry.size);
  const ShownTime time = shownTime(entry.modified);
  page += "</td><td><time datetime=\"" + time.exact + "\">" + time.date +
          "<span class=\"clock\"> " + time.clock + "</span></time></td></tr>\n";
}

void appendFolderEnd(std::string& page, const FolderPage& folder) {
  if (!isEmpty(folder)) page += "</tbody>\n</table>\n";
  appendPageEnd(page, folder.frame);
}

}  // namespace tessel
