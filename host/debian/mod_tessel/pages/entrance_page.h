// What the root of the server says to a program that is no browser.
#pragma once

#include <string>

#include "host/debian/mod_tessel/pages/page.h"

namespace tessel {

void appendEntrancePage(std::string& page, std::string_view shares);

}  // namespace tessel
