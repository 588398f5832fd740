#include "host/debian/mod_tessel/state/absences.h"

#include <optional>
#include <string_view>

namespace tessel {

namespace {

using sql::Blob;

constexpr const char* kNextPlaces =
    "SELECT folder, name, inode, birth, device, file, announced, missing FROM place"
    " WHERE (folder, name) > (?1, ?2) ORDER BY folder, name LIMIT 4";
constexpr const char* kNoteMissing =
    "UPDATE place SET missing = ?6"
    " WHERE folder = ?1 AND name = ?2 AND inode = ?3 AND birth = ?4 AND device = ?5";

// Whether the file system that a path was on is there, as far up as anything of the path is.
bool isMounted(std::string_view path, std::uint64_t device) {
  while (path.size() > 1) {
    path = partsOf(path).folder;
    const auto folder = identityAt(std::string(path));
    if (!folder) return false;
    if (folder->exists()) return folder->device == device;
  }
  return false;
}

// Whether the file of a place is missing; none when that cannot be told.
std::optional<bool> isMissing(const std::string& path, const FileIdentity& identity) {
  const auto standing = identityAt(path);
  if (!standing) return std::nullopt;
  if (standing->isSameFile(identity)) return false;
  if (!isMounted(path, identity.device)) return std::nullopt;
  return true;
}

}  // namespace

Result<std::vector<Absence>> lookForAbsences(StateConnection& connection, std::uint64_t device,
                                             std::string& after) {
  std::vector<Absence> seen;
  const PathParts parts = partsOf(after);
  const Status status = connection.rows(
      kNextPlaces,
      [&](const sql::Statement& row) {
        Absence one;
        one.path = pathInside(row.bytes(0), row.bytes(1));
        one.place = {{static_cast<std::uint64_t>(row.number(4)),
                      static_cast<std::uint64_t>(row.number(2)), row.number(3)},
                     row.number(5),
                     row.number(6),
                     row.number(7)};
        seen.push_back(std::move(one));
        return true;
      },
      Blob{parts.folder}, Blob{parts.name});
  if (!status) return status.error();
  after = seen.empty() ? std::string() : seen.back().path;

  std::vector<Absence> absences;
  for (Absence& one : seen) {
    const FileIdentity& identity = one.place.identity;
    if (!identity.exists() || identity.device != device) continue;
    const auto missing = isMissing(one.path, identity);
    if (!missing || (!*missing && one.place.missing == 0)) continue;
    one.isMissing = *missing;
    absences.push_back(std::move(one));
  }
  return absences;
}

Status noteAbsences(StateConnection& connection, const std::vector<Absence>& absences,
                    std::time_t now) {
  for (const Absence& one : absences) {
    const std::time_t since = one.place.missing;
    Status noted;
    if (one.isMissing && since != 0 && since <= now - kLongestAbsence) {
      noted = dropPlace(connection, one.path, one.place);
    } else if (!one.isMissing || since == 0 || since > now) {
      const PathParts parts = partsOf(one.path);
      const FileIdentity& identity = one.place.identity;
      noted = connection.change(kNoteMissing, Blob{parts.folder}, Blob{parts.name},
                                static_cast<std::int64_t>(identity.inode), identity.birth,
                                static_cast<std::int64_t>(identity.device),
                                one.isMissing ? static_cast<std::int64_t>(now) : 0);
    }
    if (!noted) return noted;
  }
  return {};
}

}  // namespace tessel
