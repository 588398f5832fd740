#include "host/debian/mod_tessel/provider/read_ahead.h"

#include <util_filter.h>

#include <algorithm>

namespace tessel {

namespace {

constexpr const char* kName = "TESSEL_READ_AHEAD";

apr_status_t readMore(ap_filter_t* filter, apr_bucket_brigade* brigade, ap_input_mode_t mode,
                      apr_read_type_e block, apr_off_t size) {
  constexpr apr_off_t kPiece = 1 << 16;
  if (mode == AP_MODE_READBYTES) size = std::max(size, kPiece);
  return ap_get_brigade(filter->next, brigade, mode, block, size);
}

}  // namespace

void registerReadAhead() {
  (void)ap_register_input_filter(kName, readMore, nullptr, AP_FTYPE_RESOURCE);
}

void readAhead(request_rec* request) {
  (void)ap_add_input_filter(kName, nullptr, request, request->connection);
}

}  // namespace tessel
