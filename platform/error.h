// What went wrong, in words for the administrator, and the two ways in which an operation of
// platform/ hands it back.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace tessel {

struct Error {
  std::string description;  // one sentence without a full stop or newline
};

// Nothing when the operation succeeded.
using MaybeError = std::optional<Error>;

// A value, or the reason why there is none.
template <typename T>
class [[nodiscard]] Result {
 public:
  Result(T value) : content(std::move(value)) {}          // NOLINT(google-explicit-constructor)
  Result(Error failure) : content(std::move(failure)) {}  // NOLINT(google-explicit-constructor)

  explicit operator bool() const { return content.index() == 0; }
  // To be called only when there is a value.
  T& operator*() { return *std::get_if<0>(&content); }
  const T& operator*() const { return *std::get_if<0>(&content); }
  T* operator->() { return std::get_if<0>(&content); }
  const T* operator->() const { return std::get_if<0>(&content); }
  // To be called only when there is none.
  const Error& error() const { return *std::get_if<1>(&content); }

 private:
  std::variant<T, Error> content;
};

}  // namespace tessel
