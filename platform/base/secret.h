// A text that must leave no copy of itself in memory: it is wiped when it goes out of scope.
#pragma once

#include <initializer_list>
#include <string_view>
#include <vector>

namespace tessel {

class Secret {
 public:
  // The parts one after the other.
  Secret(std::initializer_list<std::string_view> parts);
  Secret(Secret&&) noexcept = default;  // hands the bytes over, copying none
  Secret& operator=(Secret&&) = delete;
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
  ~Secret();

  std::string_view view() const { return {bytes_.data(), bytes_.size()}; }

 private:
  std::vector<char> bytes_;
};

}  // namespace tessel
