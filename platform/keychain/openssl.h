// Helpers around OpenSSL for the sources of this folder that call it.
#pragma once

#include <openssl/bio.h>
#include <openssl/err.h>

#include <memory>
#include <string>
#include <string_view>

#include "platform/base/result.h"

namespace tessel {

// A unique_ptr that frees an OpenSSL object with the given function.
template <auto Free>
struct OpenSSLDeleter {
  template <typename T>
  void operator()(T* object) const {
    Free(object);
  }
};
template <typename T, auto Free>
using OpenSSLPointer = std::unique_ptr<T, OpenSSLDeleter<Free>>;

using BIOPointer = OpenSSLPointer<BIO, BIO_free_all>;

inline BIOPointer memoryBIO(std::string_view bytes) {
  return BIOPointer(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

inline std::string contentOf(BIO* bio) {
  char* data = nullptr;
  const long size = BIO_get_mem_data(bio, &data);
  return {data, static_cast<size_t>(size)};
}

// The oldest reason in OpenSSL's queue of errors, which is the deepest one, as text; the queue is
// empty afterwards.
inline Error opensslError() {
  const unsigned long code = ERR_get_error();
  ERR_clear_error();
  const char* reason = code == 0 ? nullptr : ERR_reason_error_string(code);
  return Error{reason == nullptr ? "unknown error of the cryptographic library" : reason};
}

// The same as a positive number.
inline int opensslStatus() {
  const unsigned long code = ERR_get_error() & 0x7FFFFFFFU;
  ERR_clear_error();
  return code == 0 ? 1 : static_cast<int>(code);
}

}  // namespace tessel
