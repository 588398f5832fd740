#include "host/debian/mod_tessel/output.h"

#include <apr_portable.h>
#include <http_core.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <util_filter.h>

namespace tessel {

Output::~Output() {
  if (isHeldBack_) holdBack(false);
  if (isBegun() && !isEnded_) request_->connection->aborted = 1;
  if (pool_ != nullptr) pool_->giveBack(std::move(text_));
}

// Has the kernel gather what is written into full segments (tcp(7), TCP_CORK). Apache writes each
// TLS record on its own, and to wake the client for each takes longer than to make it.
void Output::holdBack(bool on) {
  int descriptor = -1;
  apr_socket_t* socket = ap_get_conn_socket(request_->connection);
  if (socket == nullptr || apr_os_sock_get(&descriptor, socket) != APR_SUCCESS) return;
  const int value = on ? 1 : 0;
  isHeldBack_ = ::setsockopt(descriptor, IPPROTO_TCP, TCP_CORK, &value, sizeof value) == 0 && on;
}

bool Output::send(bool isLast) {
  constexpr size_t kTLSRecord = 1 << 14;
  conn_rec* connection = request_->connection;
  if (brigade_ == nullptr) {
    brigade_ = apr_brigade_create(request_->pool, connection->bucket_alloc);
    // Where requests share a connection (HTTP/2), it is not this one's.
    if (text_.size() > kTLSRecord && connection->master == nullptr) holdBack(true);
  }
  APR_BRIGADE_INSERT_TAIL(
      brigade_, apr_bucket_transient_create(text_.data(), text_.size(), connection->bucket_alloc));
  isEnded_ = isLast;
  if (isLast) APR_BRIGADE_INSERT_TAIL(brigade_, apr_bucket_eos_create(connection->bucket_alloc));
  const bool isSent = ap_pass_brigade(request_->output_filters, brigade_) == APR_SUCCESS &&
                      connection->aborted == 0;
  apr_brigade_cleanup(brigade_);
  text_.clear();
  return isSent;
}

}  // namespace tessel
