// The order of the entries of a page, which a link in the page's head asks for.
#pragma once

#include <string>
#include <string_view>

namespace tessel {

struct Order {
  enum class By { Name, Size, Time } by = By::Name;
  bool isDescending = false;

  bool operator==(const Order&) const = default;
};

// What the part of a URL after "?" asks for: "sort=size&order=desc", and so on. What is not
// understood is passed over; the first that is counts.
Order orderOf(std::string_view query);

// The same as it stands in a URL, "?" included; nothing for the order that needs no asking.
std::string queryOf(const Order& order);

// What the link at the head of this column leads to: the other direction where the column decides
// already, else names from A to Z, and the largest and latest first.
Order orderAfter(const Order& order, Order::By column);

}  // namespace tessel
