#include "host/debian/mod_tessel/error_body.h"

#include <apr_strings.h>
#include <http_core.h>
#include <http_protocol.h>

#include <string>
#include <string_view>

#include "host/debian/mod_tessel/page_headers.h"
#include "host/debian/mod_tessel/pages/error_page.h"

namespace tessel {

void setErrorBody(request_rec* request, const char* prefix) {
  if (request->status < HTTP_BAD_REQUEST || !asksForHTML(request)) return;
  std::string page;
  // By the path as the browser has it.
  const bool endsWithSlash = std::string_view(request->uri).ends_with('/');
  appendErrorPage(page, prefix, endsWithSlash ? "../" : "./", request->status);
  ap_custom_response(request, request->status, page.c_str());
  // Apache sends these in place of the request's other headers.
  setPageHeaders(request, request->err_headers_out);
  apr_table_setn(request->subprocess_env, "suppress-error-charset", "1");  // the page has its own
}

}  // namespace tessel
