#include "host/debian/mod_tessel/pages/order.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace tessel {

namespace {

constexpr std::array<std::pair<std::string_view, Order::By>, 3> kColumns{
    {{"name", Order::By::Name}, {"size", Order::By::Size}, {"time", Order::By::Time}}};
constexpr std::array<std::pair<std::string_view, bool>, 2> kDirections{
    {{"asc", false}, {"desc", true}}};

template <typename Words>
auto meaning(const Words& words, std::string_view word) {
  const auto* const found = std::find_if(words.begin(), words.end(),
                                         [word](const auto& known) { return known.first == word; });
  return found == words.end() ? std::nullopt : std::optional(found->second);
}

template <typename Words, typename Meaning>
std::string_view wordFor(const Words& words, Meaning meant) {
  const auto* const found = std::find_if(
      words.begin(), words.end(), [meant](const auto& known) { return known.second == meant; });
  return found->first;
}

}  // namespace

Order orderOf(std::string_view query) {
  std::optional<Order::By> by;
  std::optional<bool> isDescending;
  while (!query.empty()) {
    const std::string_view part = query.substr(0, query.find('&'));
    query.remove_prefix(std::min(part.size() + 1, query.size()));
    const std::string_view key = part.substr(0, part.find('='));
    const std::string_view value = part.substr(std::min(key.size() + 1, part.size()));
    if (key == "sort" && !by) by = meaning(kColumns, value);
    if (key == "order" && !isDescending) isDescending = meaning(kDirections, value);
  }
  return {by.value_or(Order::By::Name), isDescending.value_or(false)};
}

std::string queryOf(const Order& order) {
  if (order == Order{}) return "";
  return std::string("?sort=")
      .append(wordFor(kColumns, order.by))
      .append("&order=")
      .append(wordFor(kDirections, order.isDescending));
}

Order orderAfter(const Order& order, Order::By column) {
  if (order.by == column) return {column, !order.isDescending};
  return {column, column != Order::By::Name};
}

}  // namespace tessel
