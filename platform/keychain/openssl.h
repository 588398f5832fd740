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

// The oldest reason in OpenSSL's queue of errors, which is the deepest one, with the library's
// number for it; a number is positive even when there is no reason. The queue is empty afterwards.
inline Error opensslError() {
  const unsigned long number = ERR_get_error();
  ERR_clear_error();
  const char* reason = number == 0 ? nullptr : ERR_reason_error_string(number);
  const auto code = static_cast<int>(number & 0x7FFFFFFFU);
  return Error{reason == nullptr ? "unknown error of the cryptographic library" : reason,
               code == 0 ? 1 : code};
}

// The DER form of an object by its i2d function.
template <typename Object, typename Function>
Result<std::string> encoded(const Object* object, Function i2d) {
  unsigned char* bytes = nullptr;
  const int length = i2d(object, &bytes);
  if (length < 0) return opensslError();
  std::string der(reinterpret_cast<const char*>(bytes), static_cast<size_t>(length));
  OPENSSL_free(bytes);
  return der;
}

}  // namespace tessel
