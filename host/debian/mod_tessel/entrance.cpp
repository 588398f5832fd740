#include "host/debian/mod_tessel/entrance.h"

#include <apr_strings.h>
#include <http_protocol.h>

#include "host/debian/mod_tessel/output.h"
#include "host/debian/mod_tessel/page_headers.h"
#include "host/debian/mod_tessel/pages/entrance_page.h"
#include "host/debian/mod_tessel/propfind.h"

namespace tessel {

namespace {

// Browsers go on to the shares. Everybody else reads where those are, with a status that says that
// the server is there: tesselctl's own probe asks for this, and a redirect would not do.
int answerGet(request_rec* request, const char* prefix) {
  apr_table_setn(request->err_headers_out, "Vary", "Accept");
  if (asksForHTML(request)) {
    apr_table_setn(request->headers_out, "Location",
                   apr_pstrcat(request->pool, prefix, "/", nullptr));
    return HTTP_MOVED_TEMPORARILY;
  }
  setPageHeaders(request, request->headers_out);
  ap_set_content_type(request, "text/html; charset=utf-8");
  Output output(request);
  appendEntrancePage(output.text(), prefix);
  (void)output.sendRest();
  return OK;
}

}  // namespace

int answerEntrance(request_rec* request, const char* prefix) {
  if (request->method_number == M_PROPFIND) return answerEntrancePropfind(request, prefix);
  if (request->method_number != M_GET) return answerOptions(request);
  if (const int status = ap_discard_request_body(request); status != OK) return status;
  return answerGet(request, prefix);
}

int answerOptions(request_rec* request) {
  if (const int status = ap_discard_request_body(request); status != OK) return status;
  apr_table_setn(request->headers_out, "Allow", "GET,HEAD,OPTIONS,PROPFIND");
  if (request->method_number != M_OPTIONS) return HTTP_METHOD_NOT_ALLOWED;
  // What the shares below can do: some clients decide by the collection that they were given.
  apr_table_setn(request->headers_out, "DAV", "1,2");
  apr_table_setn(request->headers_out, "MS-Author-Via", "DAV");
  ap_set_content_length(request, 0);
  return OK;
}

}  // namespace tessel
