// An answer that goes out in pieces while it is made; one that fits into a piece goes out with its
// length.
#pragma once

#include <apr_buckets.h>
#include <httpd.h>

#include <string>

namespace tessel {

// Belongs to one request.
class Output {
 public:
  explicit Output(request_rec* request) : request_(request) { text_.reserve(kPiece + kPiece / 4); }

  // What is not sent yet; more is to be appended.
  std::string& text() { return text_; }
  // False when the client has gone.
  bool sendIfFull() { return text_.size() < kPiece || send(false); }
  bool sendRest() { return send(true); }

 private:
  static constexpr size_t kPiece = 1 << 16;

  bool send(bool isLast);

  request_rec* request_;
  apr_bucket_brigade* brigade_ = nullptr;
  std::string text_;
};

}  // namespace tessel
