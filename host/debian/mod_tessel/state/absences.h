// Forgets what belongs to files that went away by other means than WebDAV, a few at each change, so
// that it cannot pile up. A file counts as gone when it has been missing for a month on a file
// system that is there: what a local user moves away and back keeps its own, and so does what lies
// on a disk that is not mounted.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "host/debian/mod_tessel/state/places.h"
#include "host/debian/mod_tessel/state/store.h"

namespace tessel {

constexpr std::time_t kLongestAbsence = 30L * 24 * 3600;  // seconds

// A place that was looked at, and what is to be noted of it.
struct Absence {
  std::string path;
  KnownPlace place;
  bool isMissing = false;
};

// Looks at the next places after this path, in the order of paths, and sets it to the last of them,
// empty at the end. Only at those on this device, which answers: whoever changes something in one
// share shall not wait for the disk of another. No transaction may be open meanwhile.
Result<std::vector<Absence>> lookForAbsences(StateConnection& connection, std::uint64_t device,
                                             std::string& after);
// Notes, inside a transaction, what was seen, and forgets who has been missing for long.
Status noteAbsences(StateConnection& connection, const std::vector<Absence>& absences,
                    std::time_t now);

}  // namespace tessel
