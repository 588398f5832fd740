// What mod_tessel gives mod_dav: the provider "tessel" (for the directive Dav), over the files of
// shares and the state that is kept for them.
#pragma once

#include <apr_pools.h>

namespace tessel {

void registerProvider(apr_pool_t* pool);

}  // namespace tessel
