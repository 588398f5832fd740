// Who may do what in a folder that is granted to Apache's user, as rules on access lists. Nothing
// here touches a file.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

#include "platform/files/access_list.h"

namespace tessel {

// The lists of a file or folder; only a folder may have the second.
struct AccessLists {
  AccessList own;
  std::optional<AccessList> forNew;
  bool operator==(const AccessLists&) const = default;
};

// To whom what Apache's user makes in a folder belongs in fact: the folder's owner and group, each
// with what the folder's own mode lets them do.
struct Keepers {
  uid_t owner = 0;
  gid_t group = 0;
  std::uint16_t ownerMay = 0;
  std::uint16_t groupMay = 0;
  std::uint16_t othersMay = 0;
};

// Those of a folder. What Apache's user has made itself has those of the folder above.
Keepers keepersOf(const struct stat& folder, const AccessList& own, uid_t apache,
                  const Keepers& above);

// The lists with Apache's user let in. Nobody else can do more with what is there, except that the
// keepers can change and delete what Apache's user has made. `keepers` are those of the folder
// itself, or for a file those of the folder that it is in.
AccessLists withApache(const AccessLists& lists, const struct stat& status, uid_t apache,
                       const Keepers& keepers);

// The lists with the entries of Apache's user as they were in others, which may be without.
AccessLists withApacheAsIn(const AccessLists& lists, const AccessLists& before, uid_t apache);

// What a grant has changed on a file or folder, for taking it back.
struct GrantRecord {
  AccessLists before;
  AccessLists after;

  std::string bytes() const;
  static Result<GrantRecord> fromBytes(std::string_view bytes);
};

}  // namespace tessel
