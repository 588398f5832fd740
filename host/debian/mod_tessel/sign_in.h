// Who may sign in: the authentication provider "tessel" (for AuthBasicProvider) asks the machine's
// accounts through pwauth, and "Require tessel-group NAME..." asks for a group. Both may be called
// by any number of threads, which the modules that Debian has for this cannot be.
#pragma once

#include <apr_pools.h>

namespace tessel {

void registerSignIn(apr_pool_t* pool);

}  // namespace tessel
