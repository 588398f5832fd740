// Which file of the database is meant by a path and what stands there. A file of the database, with
// properties and locks, is known under one place or, while something is replaced or moved, under
// two; a place that matches nothing any more does no harm. What takes a connection runs inside a
// transaction or a single statement, with the database's Errors; what takes the store asks for
// itself, without a statement where no file at all is known, and has State's Errors.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/debian/mod_tessel/state/file.h"
#include "host/debian/mod_tessel/state/store.h"

namespace tessel {

// A path as places have it: "/" is ("", ""), "/a" is ("/", "a").
struct PathParts {
  std::string_view folder;
  std::string_view name;
};
PathParts partsOf(std::string_view path);
// An Error of State for a path that is not absolute.
Status checkPath(std::string_view path);

// The values for a condition that holds for a path and all below.
struct Tree {
  explicit Tree(std::string_view path);
  PathParts top;
  std::string inside;     // the folder itself
  std::string first;      // the first path of a folder below
  std::string afterLast;  // the first that is beyond
};

struct KnownPlace {
  FileIdentity identity;
  std::int64_t file = 0;
  std::time_t announced = 0;  // when it was said that the file will stand here, 0 once it does
  std::time_t missing = 0;    // since when it was seen not to, 0 when it was not
};

// All that were ever at the path, the name alone included.
Result<std::vector<KnownPlace>> placesAt(StateConnection& connection, std::string_view path);
Result<std::vector<KnownPlace>> placesAt(StateStore& store, std::string_view path);
// The one of the file that stands at the path, none when nothing is known of it.
Result<std::optional<KnownPlace>> placeOf(StateConnection& connection, const File& file);
// The file of that, made when there is none.
Result<std::int64_t> madeFileOf(StateConnection& connection, const File& file);
Result<std::int64_t> makeFile(StateConnection& connection);
// Says that a file is, or is going to be (`announced` not 0), under this path and identity too.
Status addPlace(StateConnection& connection, std::string_view path, const FileIdentity& identity,
                std::int64_t file, std::time_t announced);
// Forgets a place, and the file when it has no other.
Status dropPlace(StateConnection& connection, std::string_view path, const KnownPlace& place);
// Forgets a file that has neither a property nor a lock.
Status dropIfBare(StateConnection& connection, std::int64_t file);
// Forgets who else was at the path. What others have announced within the last minutes stays; a
// lock on the name becomes the file's when willReplace has said that it is.
Status settlePlaces(StateConnection& connection, const File& file, std::time_t now);

Result<bool> isAnythingIn(StateStore& store, const Tree& tree);
// Puts what is in one tree into the other as well.
Status copyPlaces(StateConnection& connection, const std::string& from, const std::string& to,
                  std::time_t now);
// Takes that back.
Status takeBackPlaces(StateConnection& connection, const std::string& from, const std::string& to);
Status forgetPlaces(StateConnection& connection, const Tree& tree);

}  // namespace tessel
