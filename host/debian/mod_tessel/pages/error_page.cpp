#include "host/debian/mod_tessel/pages/error_page.h"

#include <algorithm>
#include <array>

namespace tessel {

namespace {

struct Text {
  int status;
  std::string_view title;
  std::string_view text;
};

// The last two are for what stands nowhere else, below and from 500 on.
constexpr std::array<Text, 17> kTexts{{
    {400, "Not understood", "The server did not understand this address or request."},
    {401, "Not signed in",
     "Sign in with the name and password of your account on this server: load this page again to "
     "be "
     "asked for them. If they are refused, the administrator can set a new password, or let your "
     "account in."},
    {403, "Not allowed",
     "The server may not open this for you. The administrator can see why in its log, and change "
     "who "
     "may."},
    {404, "Nothing here",
     "Nothing has this name, or not any longer. Somebody may have moved, renamed or removed it: "
     "look "
     "for it in the folder above."},
    {405, "Not possible here", "This cannot be done with what is at this address."},
    {409, "The folder is missing",
     "The folder that this belongs into does not exist, or something else stands in its place. "
     "Make "
     "the folder first, then try again."},
    {412, "Changed meanwhile",
     "Somebody else has changed this, or what you asked for holds no longer. Load it again before "
     "you "
     "change it."},
    {413, "Too large", "The server does not take as much as this at once."},
    {414, "The address is too long", "The server does not take an address as long as this."},
    {423, "Locked",
     "Somebody is working on this and has locked it. Try again later; a lock ends after an hour at "
     "most unless it is renewed, and the administrator can end it."},
    {429, "Too many wrong passwords",
     "Sign-in was refused too often. Wait a minute before you try again, with the right password."},
    {500, "The server has failed",
     "Something went wrong in the server. Try again; if it stays, tell the administrator, whose "
     "log "
     "has the reason."},
    {503, "Too busy", "The server has too much to do just now. Try again in a few seconds."},
    {507, "No space left",
     "The disk is full. What was there before is unharmed. Remove what is no longer needed, or ask "
     "the administrator for more space."},
    {501, "Not possible here", "This server does not know what was asked for."},
    {499, "Refused", "The server has refused this."},
    {599, "The server has failed", "Something went wrong in the server. Try again later."},
}};

const Text& textFor(int status) {
  const auto* const found = std::find_if(kTexts.begin(), kTexts.end() - 2,
                                         [status](const Text& t) { return t.status == status; });
  if (found != kTexts.end() - 2) return *found;
  return status < 500 ? kTexts[kTexts.size() - 2] : kTexts.back();
}

}  // namespace

void appendErrorPage(std::string& page, std::string_view shares, std::string_view above,
                     int status) {
  const Text& text = textFor(status);
  PageFrame frame;
  frame.title = text.title;
  frame.shares = shares;
  appendPageStart(page, frame);
  page += "<p>";
  page += text.text;
  page += "</p>\n<p><a href=\"";
  page += above;
  page += "\">The folder above</a></p>\n<p><a href=\"";
  page += shares;
  page += "/\">All shared folders</a></p>\n<p class=\"quiet\">Error " + std::to_string(status) +
          "</p>\n";
  appendPageEnd(page, frame);
}

}  // namespace tessel
