// An answer that goes out in pieces while it is made; one that fits into the first piece goes out
// with its length. One that is begun and not ended, because something failed on the way, ends the
// connection, so that nobody takes it for whole.
#pragma once

#include <apr_buckets.h>
#include <httpd.h>

#include <string>

#include "host/debian/mod_tessel/buffer_pool.h"

namespace tessel {

// Belongs to one request.
class Output {
 public:
  // In bytes. The first piece holds a folder of some hundred files; what comes behind it goes out
  // while it is in the processor's cache.
  static constexpr size_t kFirstPiece = 1 << 18;
  static constexpr size_t kPiece = 1 << 16;
  // With room for the entry that fills a piece.
  static constexpr size_t kCapacity = kFirstPiece + kPiece;

  // For an answer that is short.
  explicit Output(request_rec* request) : request_(request) {}
  // For one that may be long. The pool must outlive it.
  Output(request_rec* request, BufferPool& pool)
      : request_(request), pool_(&pool), text_(pool.take()) {}
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  Output(Output&&) = delete;
  Output& operator=(Output&&) = delete;
  ~Output();

  // What is not sent yet; more is to be appended.
  std::string& text() { return text_; }
  // False when the client has gone.
  bool sendIfFull() {
    return text_.size() < (brigade_ == nullptr ? kFirstPiece : kPiece) || send(false);
  }
  bool sendRest() { return send(true); }
  // Whether something of it was sent.
  bool isBegun() const { return brigade_ != nullptr; }

 private:
  bool send(bool isLast);
  void holdBack(bool on);

  request_rec* request_;
  BufferPool* pool_ = nullptr;
  apr_bucket_brigade* brigade_ = nullptr;
  std::string text_;
  bool isHeldBack_ = false;
  bool isEnded_ = false;
};

}  // namespace tessel
