#include "host/debian/mod_tessel/output.h"

#include <util_filter.h>

namespace tessel {

bool Output::send(bool isLast) {
  conn_rec* connection = request_->connection;
  if (brigade_ == nullptr) {
    brigade_ = apr_brigade_create(request_->pool, connection->bucket_alloc);
  }
  APR_BRIGADE_INSERT_TAIL(
      brigade_, apr_bucket_transient_create(text_.data(), text_.size(), connection->bucket_alloc));
  if (isLast) APR_BRIGADE_INSERT_TAIL(brigade_, apr_bucket_eos_create(connection->bucket_alloc));
  const bool isSent = ap_pass_brigade(request_->output_filters, brigade_) == APR_SUCCESS &&
                      connection->aborted == 0;
  apr_brigade_cleanup(brigade_);
  text_.clear();
  return isSent;
}

}  // namespace tessel
