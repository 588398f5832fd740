#include "host/debian/mod_tessel/page_headers.h"

#include <apr_base64.h>
#include <apr_strings.h>

#include <array>
#include <string>
#include <string_view>

#include "host/debian/mod_tessel/pages/page.h"
#include "platform/keychain/digest.h"

namespace tessel {

namespace {

// httpd_tessel.conf sets its own policy where this is not set.
constexpr const char* kIsPage = "tessel-page";

// Nothing but the page's style, by its digest; without one not even that.
std::string policyOf(std::string_view style) {
  std::string policy =
      "default-src 'none'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";
  if (const auto digest = sha256(style)) {
    std::array<char, 64> encoded{};
    const std::string_view bytes = bytesOf(*digest);
    (void)apr_base64_encode(encoded.data(), bytes.data(), static_cast<int>(bytes.size()));
    policy.append("; style-src 'sha256-").append(encoded.data()).append("'");
  }
  return policy;
}

}  // namespace

void setPageHeaders(request_rec* request, apr_table_t* headers) {
  static const std::string policy = policyOf(pageStyle());
  apr_table_setn(request->subprocess_env, kIsPage, "1");
  apr_table_set(headers, "Content-Security-Policy", policy.c_str());
  // What is listed is nobody else's, and changes at any moment.
  apr_table_setn(headers, "Cache-Control", "private, no-store");
}

bool asksForHTML(const request_rec* request) {
  const char* accepted = apr_table_get(request->headers_in, "Accept");
  return accepted != nullptr && ap_strcasestr(accepted, "text/html") != nullptr;
}

}  // namespace tessel
