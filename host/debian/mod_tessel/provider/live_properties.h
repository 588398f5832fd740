// Properties that the files themselves have, as mod_dav asks for them: it refuses to overwrite
// those that only say how a file is, and has the others set.
#pragma once

#include <apr_pools.h>

namespace tessel {

void registerLiveProperties(apr_pool_t* pool);

}  // namespace tessel
