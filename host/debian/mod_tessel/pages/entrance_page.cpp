#include "host/debian/mod_tessel/pages/entrance_page.h"

namespace tessel {

void appendEntrancePage(std::string& page, std::string_view shares) {
  PageFrame frame;
  frame.title = "Shared folders";
  frame.shares = shares;
  appendPageStart(page, frame);
  page += "<p>This server shares folders over WebDAV, at <a href=\"";
  page.append(shares).append("/\">").append(shares);
  page += "/</a>.</p>\n";
  appendPageEnd(page, frame);
}

}  // namespace tessel
