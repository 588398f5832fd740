#include "host/debian/mod_tessel/pages/connect_page.h"

#include "host/debian/mod_tessel/pages/markup.h"

namespace tessel {

namespace {

void appendCode(std::string& page, std::string_view text) {
  page += "<code>";
  appendText(page, text);
  page += "</code>";
}

void appendSection(std::string& page, std::string_view heading, std::string_view way,
                   std::string_view address, std::string_view rest) {
  page += "<h2>";
  page += heading;
  page += "</h2>\n<p>";
  page += way;
  page += ' ';
  appendCode(page, address);
  page += rest;
  page += "</p>\n";
}

}  // namespace

void appendConnectPage(std::string& page, const PageFrame& frame, const ServiceAddress& address) {
  const std::string_view secure = address.isEncrypted ? "s" : "";
  const std::string rest =
      std::string(secure).append("://").append(address.host).append(frame.shares).append("/");
  const std::string web = "http" + rest;
  appendPageStart(page, frame);
  page += "<p>Every program that speaks WebDAV opens the shared folders at</p>\n<pre>";
  appendCode(page, web);
  page +=
      "</pre>\n<p>with the name and password that you have signed in with here. The address of one "
      "folder has its name after the last slash.</p>\n";
  appendSection(page, "GNOME", "In Files, under <i>Other Locations</i>, connect to", "dav" + rest,
                ".");
  appendSection(page, "KDE", "In Dolphin, type this into the address bar:", "webdav" + rest, "");
  appendSection(
      page, "Windows",
      "In the Explorer, choose <i>Map network drive</i>, and give this as the folder:", web,
      " Larger files than 50 MB open once the limit of its WebClient service is raised.");
  appendSection(page, "macOS", "In the Finder, choose <i>Go, Connect to Server</i>, and enter", web,
                ".");
  page +=
      "<h2>Telephones</h2>\n<p>Give the first address above to a file manager that knows "
      "WebDAV.</p>\n<h2>Command line</h2>\n<pre>";
  appendCode(page, "curl -u NAME -T FILE '" + web + "FOLDER/'");
  page += "\n";
  appendCode(page, "sudo mount -t davfs '" + web + "' /mnt");
  page += "</pre>\n";
  if (address.isEncrypted) {
    page +=
        "<h2>When a program warns of the certificate</h2>\n<p>Your system does not know who has "
        "issued it. Do not click the warning away: ask the administrator of this server for the "
        "certificate, and add it to those that your system trusts. The fingerprint that the "
        "warning "
        "shows has to be the one that the administrator reads to you.</p>\n";
  }
  appendPageEnd(page, frame);
}

}  // namespace tessel
