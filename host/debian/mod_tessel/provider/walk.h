// mod_dav's walks through a folder and all below it.
#pragma once

#include "host/debian/mod_tessel/dav.h"

namespace tessel {

dav_error* walkResources(const dav_walk_params* parameters, int depth, dav_response** response);

}  // namespace tessel
