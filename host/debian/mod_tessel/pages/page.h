// What all pages have in common: the frame, its looks, and the way back to what is above.
//
// A page is HTML without a script, in one piece: nothing is fetched for it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tessel {

// The content of each page's style element, which its Content-Security-Policy names by its digest.
std::string_view pageStyle();

struct Step {
  std::string href;
  std::string_view name;
};

struct PageFrame {
  std::string_view title;     // bytes that others may have chosen
  std::string_view shares;    // the location at which shares are served: "/webdav"
  std::vector<Step> trail;    // of links, from the list of shares down to the page's parent
  std::string_view user;      // who is signed in; empty where nobody is
  std::string_view footnote;  // text
};

// Everything up to the page's content.
void appendPageStart(std::string& page, const PageFrame& frame);
// Everything after it.
void appendPageEnd(std::string& page, const PageFrame& frame);

}  // namespace tessel
