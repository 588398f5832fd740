// The page for what did not work, which says what to do.
#pragma once

#include <string>

#include "host/debian/mod_tessel/pages/page.h"

namespace tessel {

// For a status of HTTP from 400 on. `above` leads to the folder above what was asked for.
void appendErrorPage(std::string& page, std::string_view shares, std::string_view above,
                     int status);

}  // namespace tessel
