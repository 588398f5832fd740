// Keeps the TLS identity as it is while Apache reads its configuration: tesselctl writes the key
// and the script that tells its pass phrase one after the other, under the lock of the keychains'
// folder, and Apache would end at a pair that does not match, however well it ran before.
#pragma once

#include <apr_pools.h>

namespace tessel {

void registerIdentityLock(apr_pool_t* pool);

// The same by hand, for as long as the pool lives. Waits at most ten seconds and then goes on
// without; false when memory runs out.
bool holdIdentity(apr_pool_t* pool);

}  // namespace tessel
