#include "host/debian/mod_tessel/pages/page.h"

#include "host/debian/mod_tessel/pages/markup.h"

namespace tessel {

namespace {

constexpr std::string_view kStyle = R"(
:root {
  color-scheme: light dark;
  --ground: #fff;
  --text: #1d2126;
  --quiet: #59616b;
  --link: #0a55a8;
  --line: #e2e5e9;
  --hint: #f4f6f8;
}
@media (prefers-color-scheme: dark) {
  :root {
    --ground: #15181c;
    --text: #e4e7eb;
    --quiet: #9fa8b3;
    --link: #8dbdf5;
    --line: #2d333b;
    --hint: #1e2329;
  }
}
* { box-sizing: border-box; }
html { -webkit-text-size-adjust: 100%; text-size-adjust: 100%; }
body {
  margin: 0 auto;
  max-width: 60rem;
  min-height: 100vh;
  padding: 2rem 1.5rem;
  display: flex;
  flex-direction: column;
  background: var(--ground);
  color: var(--text);
  font: 1rem/1.5 system-ui, sans-serif;
}
main { flex: 1; }
a { color: var(--link); text-decoration: none; }
a:hover { text-decoration: underline; }
a:focus-visible { outline: 2px solid var(--link); outline-offset: 2px; border-radius: 2px; }
bdi { white-space: pre-wrap; overflow-wrap: anywhere; }
nav ol { display: flex; flex-wrap: wrap; margin: 0; padding: 0; list-style: none; }
nav li::after { content: "/"; margin: 0 .5em; color: var(--quiet); }
h1 { margin: .15rem 0 1.25rem; font-size: 1.6rem; line-height: 1.25; font-weight: 600; }
h2 { margin: 1.75rem 0 .25rem; font-size: 1rem; font-weight: 600; }
p { margin: 0 0 .75rem; max-width: 42rem; }
code { font: .9375em/1.5 ui-monospace, monospace; overflow-wrap: anywhere; }
pre { margin: 0 0 .75rem; padding: .6rem .8rem; background: var(--hint); border-radius: 4px; white-space: pre-wrap; }
.quiet, footer, caption, td, thead a { color: var(--quiet); }
table { width: calc(100% + 1rem); margin: 0 -.5rem; border-collapse: collapse; font-variant-numeric: tabular-nums; }
caption { padding: 0 .5rem .75rem; text-align: start; }
th { font-weight: inherit; text-align: start; }
th, td { padding: 0 .5rem; border-bottom: 1px solid var(--line); vertical-align: baseline; }
thead th { position: sticky; top: 0; padding-block: .4rem; background: var(--ground); color: var(--quiet); font-size: .875rem; white-space: nowrap; }
thead a { display: inline-block; margin: -.4rem 0; padding: .4rem 0; }
thead [aria-sort] a { color: var(--text); font-weight: 600; }
[aria-sort=ascending] a::after { content: " \2191"; }
[aria-sort=descending] a::after { content: " \2193"; }
tbody th a { display: block; margin: 0 -.5rem; padding: .45rem .5rem; }
tbody tr:hover { background: var(--hint); }
th:not(:first-child), td { text-align: end; white-space: nowrap; font-size: .875rem; width: 1%; padding-inline-start: 1.5rem; }
.folder a { font-weight: 600; }
footer { margin-top: 2.5rem; padding-top: .75rem; border-top: 1px solid var(--line); font-size: .875rem; }
footer p { display: flex; flex-wrap: wrap; gap: .25rem 1.5rem; margin: 0; max-width: none; }
@media (max-width: 36rem) {
  body { padding: 1.25rem 1rem; }
  h1 { font-size: 1.35rem; }
  .clock { display: none; }
  th:not(:first-child), td { padding-inline-start: .5rem; }
  tbody th a { padding-block: .65rem; }
}
@media print {
  body { display: block; max-width: none; padding: 0; font-size: 10pt; }
  :root { --ground: #fff; --text: #000; --quiet: #333; --link: #000; --line: #bbb; }
  nav, footer a { display: none; }
  thead th { position: static; }
  tr { break-inside: avoid; }
  tbody th a { padding-block: .15rem; }
}
)";

}  // namespace

std::string_view pageStyle() { return kStyle; }

void appendPageStart(std::string& page, const PageFrame& frame) {
  page +=
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>";
  appendText(page, frame.title);
  page += "</title>\n<style>";
  page += kStyle;
  page += "</style>\n</head>\n<body>\n<main>\n";
  if (!frame.trail.empty()) {
    page += "<nav aria-label=\"Above\"><ol>\n";
    for (const Step& step : frame.trail) {
      page += "<li><a href=\"";
      appendText(page, step.href);
      page += "\">";
      appendName(page, step.name);
      page += "</a></li>\n";
    }
    page += "</ol></nav>\n";
  }
  page += "<h1>";
  appendName(page, frame.title);
  page += "</h1>\n";
}

void appendPageEnd(std::string& page, const PageFrame& frame) {
  page += "</main>\n<footer><p>";
  if (!frame.user.empty()) {
    page += "<span>Signed in as ";
    appendName(page, frame.user);
    page += "</span>\n";
  }
  if (!frame.footnote.empty()) {
    page += "<span>";
    appendText(page, frame.footnote);
    page += "</span>\n";
  }
  page += "<a href=\"";
  appendText(page, frame.shares);
  page += "/?connect\">How to connect</a></p></footer>\n</body>\n</html>\n";
}

}  // namespace tessel
