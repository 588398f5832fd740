#include "host/debian/mod_tessel/state/places.h"

namespace tessel {

namespace {

using sql::Blob;

// How long a file may take from being announced to standing there, in seconds. What was announced
// before by a process that then died is forgotten.
constexpr std::time_t kLongestAnnouncement = 600;
// No path has as many; a damaged database may.
constexpr std::size_t kMostPlaces = 1000;

#define TREE_OF(place)                                                                   \
  "((" place ".folder = ?1 AND " place ".name = ?2) OR " place ".folder = ?3 OR (" place \
  ".folder >= ?4 AND " place ".folder < ?5))"

constexpr const char* kAnyPlace = "SELECT EXISTS (SELECT 1 FROM place)";
constexpr const char* kPlacesAt =
    "SELECT inode, birth, device, file, announced, missing FROM place WHERE folder = ? AND name = "
    "?";
constexpr const char* kMakeFile = "INSERT INTO file DEFAULT VALUES";
constexpr const char* kAddPlace = "INSERT OR REPLACE INTO place VALUES (?, ?, ?, ?, ?, ?, ?, 0)";
constexpr const char* kDropPlace =
    "DELETE FROM place WHERE folder = ? AND name = ? AND inode = ? AND birth = ? AND device = ?";
constexpr const char* kDropUnplaced =
    "DELETE FROM file WHERE id = ?1 AND NOT EXISTS (SELECT 1 FROM place WHERE file = ?1)";
constexpr const char* kDropBare =
    "DELETE FROM file WHERE id = ?1 AND NOT EXISTS (SELECT 1 FROM property WHERE file = ?1)"
    " AND NOT EXISTS (SELECT 1 FROM lock WHERE file = ?1)";
constexpr const char* kMarkSettled =
    "UPDATE place SET announced = 0"
    " WHERE folder = ? AND name = ? AND inode = ? AND birth = ? AND device = ?";
constexpr const char* kIsAnythingIn =
    "SELECT EXISTS (SELECT 1 FROM place p WHERE " TREE_OF("p") ")";
constexpr const char* kCopyTop =
    "INSERT OR REPLACE INTO place SELECT ?3, ?4, inode, birth, device, file, ?5, 0 FROM place"
    " WHERE folder = ?1 AND name = ?2 AND inode != 0";
constexpr const char* kCopyBelow =
    "INSERT OR REPLACE INTO place"
    " SELECT CAST(?6 || substr(folder, ?7) AS BLOB), name, inode, birth, device, file, ?8, 0"
    " FROM place p WHERE " TREE_OF("p") " AND NOT (p.folder = ?1 AND p.name = ?2) AND inode != 0";
constexpr const char* kTakeBack =
    "DELETE FROM place AS p WHERE " TREE_OF("p") " AND announced != 0 AND EXISTS"
    " (SELECT 1 FROM place o WHERE o.file = p.file AND ((o.folder = ?6 AND o.name = ?7) OR"
    " o.folder = ?8 OR (o.folder >= ?9 AND o.folder < ?10)))";
constexpr const char* kForgetLocks =
    "DELETE FROM lock WHERE file IN (SELECT file FROM place p WHERE " TREE_OF("p") ")";
constexpr const char* kForgetFiles =
    "DELETE FROM file WHERE id IN (SELECT file FROM place p WHERE " TREE_OF("p") ")"
    " AND NOT EXISTS (SELECT 1 FROM place q WHERE q.file = file.id AND NOT " TREE_OF("q") ")";
constexpr const char* kForgetPlaces = "DELETE FROM place AS p WHERE " TREE_OF("p");

#undef TREE_OF

std::int64_t asNumber(std::uint64_t number) { return static_cast<std::int64_t>(number); }

// Runs a statement whose first five values are those of a tree.
template <typename... Values>
Status changeTree(StateConnection& connection, const char* sql, const Tree& tree,
                  const Values&... values) {
  return connection.change(sql, Blob{tree.top.folder}, Blob{tree.top.name}, Blob{tree.inside},
                           Blob{tree.first}, Blob{tree.afterLast}, values...);
}

// Runs a statement whose values are those of a place.
Status changePlace(StateConnection& connection, const char* sql, std::string_view path,
                   const KnownPlace& place) {
  const PathParts parts = partsOf(path);
  const FileIdentity& identity = place.identity;
  return connection.change(sql, Blob{parts.folder}, Blob{parts.name}, asNumber(identity.inode),
                           identity.birth, asNumber(identity.device));
}

// What `function` finds, nothing where there is no place at all.
template <typename Answer, typename Function>
Result<Answer> askOfPlaces(StateStore& store, Function&& function) {
  return store.read([&](StateConnection& connection) -> Result<Answer> {
    const auto any = connection.rememberedNumber(kAnyPlace);
    if (!any) return any.error();
    return *any == 0 ? Answer() : function(connection);
  });
}

// Whether a place other than that of the file `standing` there can be forgotten.
bool isOver(const KnownPlace& place, const std::optional<std::int64_t>& standing, std::time_t now) {
  if (!place.identity.exists()) return standing == place.file;
  return place.announced > now || place.announced <= now - kLongestAnnouncement;
}

}  // namespace

PathParts partsOf(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  if (path == "/" || slash == std::string_view::npos) return {"", ""};
  return {path.substr(0, slash == 0 ? 1 : slash), path.substr(slash + 1)};
}

Status checkPath(std::string_view path) {
  if (path.starts_with('/')) return {};
  return stateError(StateError::Failed, "the path of a file is not known");
}

Tree::Tree(std::string_view path)
    : top(partsOf(path)), inside(path), first(path == "/" ? "/" : inside + '/'), afterLast(first) {
  ++afterLast.back();
}

Result<std::vector<KnownPlace>> placesAt(StateConnection& connection, std::string_view path) {
  std::vector<KnownPlace> places;
  const PathParts parts = partsOf(path);
  const Status status = connection.rows(
      kPlacesAt,
      [&](const sql::Statement& row) {
        places.push_back({{static_cast<std::uint64_t>(row.number(2)),
                           static_cast<std::uint64_t>(row.number(0)), row.number(1)},
                          row.number(3),
                          row.number(4),
                          row.number(5)});
        return places.size() < kMostPlaces;
      },
      Blob{parts.folder}, Blob{parts.name});
  if (!status) return status.error();
  return places;
}

Result<std::vector<KnownPlace>> placesAt(StateStore& store, std::string_view path) {
  return askOfPlaces<std::vector<KnownPlace>>(
      store, [&](StateConnection& connection) { return placesAt(connection, path); });
}

Result<std::optional<KnownPlace>> placeOf(StateConnection& connection, const File& file) {
  const auto places = placesAt(connection, file.path);
  if (!places) return places.error();
  for (const KnownPlace& place : *places) {
    if (place.identity.isSameFile(file.identity)) return std::optional(place);
  }
  return std::optional<KnownPlace>();
}

Result<std::int64_t> makeFile(StateConnection& connection) {
  if (const Status made = connection.change(kMakeFile); !made) return made.error();
  return connection.database().lastRowID();
}

Result<std::int64_t> madeFileOf(StateConnection& connection, const File& file) {
  const auto known = placeOf(connection, file);
  if (!known) return known.error();
  if (*known) return (*known)->file;
  auto made = makeFile(connection);
  if (!made) return made;
  if (const Status added = addPlace(connection, file.path, file.identity, *made, 0); !added) {
    return added.error();
  }
  return made;
}

Status addPlace(StateConnection& connection, std::string_view path, const FileIdentity& identity,
                std::int64_t file, std::time_t announced) {
  const auto places = placesAt(connection, path);
  if (!places) return places.error();
  for (const KnownPlace& place : *places) {
    if (!place.identity.isSameFile(identity) || place.file == file) continue;
    if (Status dropped = dropPlace(connection, path, place); !dropped) return dropped;
  }
  const PathParts parts = partsOf(path);
  return connection.change(kAddPlace, Blob{parts.folder}, Blob{parts.name},
                           asNumber(identity.inode), identity.birth, asNumber(identity.device),
                           file, static_cast<std::int64_t>(announced));
}

Status dropPlace(StateConnection& connection, std::string_view path, const KnownPlace& place) {
  Status dropped = changePlace(connection, kDropPlace, path, place);
  if (!dropped) return dropped;
  return connection.change(kDropUnplaced, place.file);
}

Status dropIfBare(StateConnection& connection, std::int64_t file) {
  return connection.change(kDropBare, file);
}

Status settlePlaces(StateConnection& connection, const File& file, std::time_t now) {
  const auto places = placesAt(connection, file.path);
  if (!places) return places.error();
  std::optional<std::int64_t> standing;
  for (const KnownPlace& place : *places) {
    if (place.identity.isSameFile(file.identity)) standing = place.file;
  }
  for (const KnownPlace& place : *places) {
    Status done;
    if (place.identity.isSameFile(file.identity)) {
      if (place.announced != 0) done = changePlace(connection, kMarkSettled, file.path, place);
    } else if (isOver(place, standing, now)) {
      done = dropPlace(connection, file.path, place);
    }
    if (!done) return done;
  }
  return {};
}

Result<bool> isAnythingIn(StateStore& store, const Tree& tree) {
  return askOfPlaces<bool>(store, [&](StateConnection& connection) -> Result<bool> {
    const auto found = connection.number(kIsAnythingIn, Blob{tree.top.folder}, Blob{tree.top.name},
                                         Blob{tree.inside}, Blob{tree.first}, Blob{tree.afterLast});
    if (!found) return found.error();
    return *found != 0;
  });
}

Status copyPlaces(StateConnection& connection, const std::string& from, const std::string& to,
                  std::time_t now) {
  const Tree tree(from);
  const PathParts target = partsOf(to);
  const auto time = static_cast<std::int64_t>(now);
  Status top = connection.change(kCopyTop, Blob{tree.top.folder}, Blob{tree.top.name},
                                 Blob{target.folder}, Blob{target.name}, time);
  if (!top) return top;
  // substr counts from 1.
  return changeTree(connection, kCopyBelow, tree, Blob{to},
                    static_cast<std::int64_t>(from.size()) + 1, time);
}

Status takeBackPlaces(StateConnection& connection, const std::string& from, const std::string& to) {
  const Tree source(from);
  return changeTree(connection, kTakeBack, Tree(to), Blob{source.top.folder}, Blob{source.top.name},
                    Blob{source.inside}, Blob{source.first}, Blob{source.afterLast});
}

Status forgetPlaces(StateConnection& connection, const Tree& tree) {
  for (const char* sql : {kForgetLocks, kForgetFiles, kForgetPlaces}) {
    if (Status forgotten = changeTree(connection, sql, tree); !forgotten) return forgotten;
  }
  return {};
}

}  // namespace tessel
