// What an operation that may fail returns: Status when there is nothing to hand over, Result<T>
// when there is. Both are true on success and carry an Error otherwise; to take a value or an error
// that is not there ends the process.
//
//   if (const Status moved = files.moveItem(from, to); !moved)
//   reportError(moved.error().description);
#pragma once

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace tessel {

struct Error {
  std::string description;  // one sentence for the administrator, without a full stop or newline
  int code = 0;             // the failing library's own number, where somebody asks for it
};

class [[nodiscard]] Status {
 public:
  Status() = default;                                    // success
  Status(Error reason) : failure_(std::move(reason)) {}  // NOLINT(google-explicit-constructor)

  explicit operator bool() const { return !failure_.has_value(); }
  const Error& error() const {
    if (!failure_) std::abort();
    return *failure_;
  }

 private:
  std::optional<Error> failure_;
};

template <typename T>
class [[nodiscard]] Result {
 public:
  Result(T value) : content_(std::move(value)) {}        // NOLINT(google-explicit-constructor)
  Result(Error reason) : content_(std::move(reason)) {}  // NOLINT(google-explicit-constructor)

  explicit operator bool() const { return std::holds_alternative<T>(content_); }
  T& operator*() & { return get<T>(content_); }
  const T& operator*() const& { return get<T>(content_); }
  T&& operator*() && { return std::move(get<T>(content_)); }
  T* operator->() { return &get<T>(content_); }
  const T* operator->() const { return &get<T>(content_); }
  const Error& error() const { return get<Error>(content_); }

  // The value, or this one in its place.
  T valueOr(T other) const { return *this ? **this : std::move(other); }

 private:
  template <typename Wanted, typename Content>
  static auto& get(Content& content) {
    auto* const found = std::get_if<Wanted>(&content);
    if (found == nullptr) std::abort();
    return *found;
  }

  std::variant<T, Error> content_;
};

}  // namespace tessel
