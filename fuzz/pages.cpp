// Names of files in pages: name of a share 0xFF query 0xFF names, each ended by a slash.
#include <algorithm>
#include <string>
#include <vector>

#include "fuzz/fuzz.h"
#include "host/debian/mod_tessel/pages/folder_page.h"
#include "host/debian/mod_tessel/pages/markup.h"
#include "host/debian/mod_tessel/pages/natural_order.h"
#include "platform/base/text.h"

using namespace tessel;  // NOLINT(google-build-using-namespace)
using fuzz::require;

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) { return 0; }

namespace {

// What a folder's page consists of beside names, by the number of its entries.
size_t tagsIn(std::string_view page) {
  return static_cast<size_t>(std::count(page.begin(), page.end(), '<'));
}

std::string pageOf(std::string_view title, const Order& order,
                   const std::vector<std::string>& names) {
  PageEntries entries(order, 3);
  for (const std::string& name : names) entries.add(name, name.size() % 2 == 0, name.size(), 0);
  const std::vector<PageEntry> shown = entries.take();
  require(shown.size() == std::min<size_t>(names.size(), 3));
  FolderPage folder;
  folder.frame.title = title;
  folder.frame.shares = "/webdav";
  folder.frame.trail = {{"/webdav/", title}};
  folder.order = order;
  folder.folders = entries.folders();
  folder.files = entries.files();
  folder.shown = shown.size();
  std::string page;
  appendFolderStart(page, folder);
  for (const PageEntry& entry : shown) appendFolderEntry(page, entry);
  appendFolderEnd(page, folder);
  return page;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view rest = fuzz::text(data, size);
  const std::string_view title = fuzz::takeField(rest);
  const Order order = orderOf(fuzz::takeField(rest));
  const std::string query = queryOf(order);
  require(orderOf(std::string_view(query).substr(query.empty() ? 0 : 1)) == order);
  require(!(orderAfter(order, order.by) == order));
  std::vector<std::string> names;
  std::vector<std::string> harmless;
  while (!rest.empty()) {
    const std::string_view name = rest.substr(0, rest.find('/'));
    rest.remove_prefix(std::min(name.size() + 1, rest.size()));
    names.emplace_back(name);
    harmless.emplace_back(name.size(), 'x');
    require(naturalKey(name).size() <= 3 * name.size() + 2);
    std::string text;
    appendText(text, name);
    require(isXMLText(text) && text.find_first_of("<>\"'\n\t") == std::string::npos);
  }
  // Whatever names are, they are no part of the page's structure.
  const std::string page = pageOf(title, order, names);
  require(isXMLText(page) && tagsIn(page) == tagsIn(pageOf("x", order, harmless)));
  return 0;
}
