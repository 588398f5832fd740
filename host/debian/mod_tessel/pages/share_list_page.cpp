#include "host/debian/mod_tessel/pages/share_list_page.h"

#include <algorithm>
#include <map>
#include <utility>

#include "host/debian/mod_tessel/pages/markup.h"
#include "host/debian/mod_tessel/pages/natural_order.h"
#include "host/debian/mod_tessel/pages/quantities.h"
#include "platform/base/percent_encoding.h"

namespace tessel {

void appendShareListPage(std::string& page, const PageFrame& frame,
                         const std::vector<ListedShare>& shares) {
  appendPageStart(page, frame);
  if (shares.empty()) {
    page +=
        "<p>There is no folder for you here yet. The administrator of this server shares one with "
        "<code>tesselctl share</code>.</p>\n";
    appendPageEnd(page, frame);
    return;
  }
  std::map<std::pair<std::string, std::string>, const ListedShare*> sorted;
  for (const ListedShare& share : shares) {
    sorted.emplace(std::pair(naturalKey(share.name), share.name), &share);
  }
  page += "<table>\n<caption>" + shownCount(sorted.size(), "folder", "folders") +
          "</caption>\n<thead><tr>\n<th scope=\"col\">Name</th>\n<th scope=\"col\">Free</th>\n"
          "</tr></thead>\n<tbody>\n";
  for (const auto& [key, share] : sorted) {
    page += R"(<tr class="folder"><th scope="row"><a href=")";
    appendPercentEncoded(page, share->name);
    page += "/\">";
    appendName(page, share->name);
    page += "/</a></th><td>";
    if (share->available) page += shownSize(*share->available);
    page += "</td></tr>\n";
  }
  page += "</tbody>\n</table>\n";
  appendPageEnd(page, frame);
}

}  // namespace tessel
