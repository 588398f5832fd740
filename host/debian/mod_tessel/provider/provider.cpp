#include "host/debian/mod_tessel/provider/provider.h"

#include "host/debian/mod_tessel/provider/dead_properties.h"
#include "host/debian/mod_tessel/provider/live_properties.h"
#include "host/debian/mod_tessel/provider/read_ahead.h"
#include "host/debian/mod_tessel/provider/resource.h"

namespace tessel {

namespace {

const dav_provider kProvider = {
    &kRepositoryHooks, &kDeadPropertyHooks, &kLockHooks, nullptr, nullptr, nullptr, nullptr};

}  // namespace

void registerProvider(apr_pool_t* pool) {
  dav_register_provider(pool, "tessel", &kProvider);
  registerLiveProperties(pool);
  registerDeadProperties();
  registerReadAhead();
}

}  // namespace tessel
