// Properties that clients set, as mod_dav asks for them.
#pragma once

namespace tessel {

void registerDeadProperties();

}  // namespace tessel
