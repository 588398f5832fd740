#include <algorithm>
#include <map>
#include <utility>

#include "host/debian/mod_tessel/state/absences.h"
#include "host/debian/mod_tessel/state/places.h"
#include "host/debian/mod_tessel/state/state.h"
#include "host/debian/mod_tessel/state/store.h"

namespace tessel {

namespace {

using sql::Blob;

// What a listing holds of a folder at once, in bytes.
constexpr std::size_t kMostHeld = 4UL * 1024 * 1024;

constexpr const char* kProperties =
    "SELECT space, name, value FROM property WHERE file = ? ORDER BY space, name";
constexpr const char* kProperty =
    "SELECT value FROM property WHERE file = ? AND space = ? AND name = ?";
constexpr const char* kPropertiesIn =
    "SELECT r.space, r.name, r.value, p.name, p.inode, p.birth, p.device"
    " FROM place p CROSS JOIN property r ON r.file = p.file WHERE p.folder = ?"
    " ORDER BY p.name, p.inode, p.birth, p.device, r.space, r.name";
constexpr const char* kOtherProperties =
    "SELECT count(*), total(length(space) + length(name) + length(value)) FROM property"
    " WHERE file = ? AND NOT (space = ? AND name = ?)";
constexpr const char* kSetProperty = "INSERT OR REPLACE INTO property VALUES (?, ?, ?, ?)";
constexpr const char* kRemoveProperty =
    "DELETE FROM property WHERE file = ? AND space = ? AND name = ?";
constexpr const char* kCopyProperties =
    "INSERT INTO property SELECT ?2, space, name, value FROM property WHERE file = ?1";
constexpr const char* kHasProperties = "SELECT EXISTS (SELECT 1 FROM property WHERE file = ?)";

// None of what a damaged database may hold and nobody could have set.
std::optional<Property> propertyFrom(const sql::Statement& row) {
  Property property{std::string(row.bytes(0)), std::string(row.bytes(1)),
                    std::string(row.bytes(2))};
  if (property.name.empty() || property.space.size() + property.name.size() > kMostNameBytes ||
      property.value.size() > kMostValueBytes) {
    return std::nullopt;
  }
  return property;
}

std::size_t sizeOf(const Property& property) {
  return property.space.size() + property.name.size() + property.value.size();
}

Result<std::vector<Property>> propertiesOf(StateConnection& connection, std::int64_t file) {
  std::vector<Property> properties;
  const Status status = connection.rows(
      kProperties,
      [&](const sql::Statement& row) {
        if (auto property = propertyFrom(row)) properties.push_back(std::move(*property));
        return properties.size() < kMostProperties;
      },
      file);
  if (!status) return status.error();
  return properties;
}

Result<std::optional<std::string>> valueOf(StateConnection& connection, std::int64_t file,
                                           std::string_view space, std::string_view name) {
  std::optional<std::string> value;
  const Status status = connection.rows(
      kProperty,
      [&](const sql::Statement& row) {
        if (row.bytes(0).size() <= kMostValueBytes) value = row.bytes(0);
        return false;
      },
      file, Blob{space}, Blob{name});
  if (!status) return status.error();
  return value;
}

Result<std::vector<Property>> propertiesOfFile(StateConnection& connection, const File& file) {
  if (!file.identity.exists()) return std::vector<Property>();
  const auto known = placeOf(connection, file);
  if (!known) return known.error();
  if (!*known) return std::vector<Property>();
  return propertiesOf(connection, (*known)->file);
}

}  // namespace

Result<std::vector<Property>> State::properties(const File& file) {
  return store_->read(
      [&](StateConnection& connection) { return propertiesOfFile(connection, file); });
}

Result<std::optional<std::string>> State::property(const File& file, std::string_view space,
                                                   std::string_view name) {
  return store_->read([&](StateConnection& connection) -> Result<std::optional<std::string>> {
    const auto known = placeOf(connection, file);
    if (!known) return known.error();
    if (!*known) return std::optional<std::string>();
    return valueOf(connection, (*known)->file, space, name);
  });
}

struct FolderProperties::Content {
  struct Entry {
    FileIdentity identity;
    std::vector<Property> properties;
  };
  std::map<std::string, std::vector<Entry>, std::less<>> entries;
};

FolderProperties::FolderProperties(StateStore& store, std::string folder)
    : store_(&store), folder_(std::move(folder)) {}

Result<FolderProperties> State::propertiesIn(const std::string& folder) {
  return store_->read([&](StateConnection& connection) -> Result<FolderProperties> {
    FolderProperties found(*store_, folder);
    std::size_t held = 0;
    const Status status = connection.rows(
        kPropertiesIn,
        [&](const sql::Statement& row) {
          if (!found.content_) found.content_ = std::make_shared<FolderProperties::Content>();
          const std::string_view name = row.bytes(3);
          auto property = propertyFrom(row);
          if (!property) return true;
          constexpr std::size_t kEntrySize = 200;  // and whatever else a map takes
          held += sizeOf(*property) + name.size() + kEntrySize;
          if (held > kMostHeld) return false;
          const FileIdentity identity{static_cast<std::uint64_t>(row.number(6)),
                                      static_cast<std::uint64_t>(row.number(4)), row.number(5)};
          auto& entries = found.content_->entries;
          auto place = entries.find(name);
          if (place == entries.end()) place = entries.try_emplace(std::string(name)).first;
          auto& known = place->second;
          if (known.empty() || !known.back().identity.isSameFile(identity)) {
            known.push_back({identity, {}});
          }
          known.back().properties.push_back(std::move(*property));
          return true;
        },
        Blob{folder});
    if (!status) return status.error();
    found.isEmpty_ = !found.content_;
    if (held > kMostHeld) found.content_.reset();
    return found;
  });
}

Result<std::vector<Property>> FolderProperties::of(std::string_view name,
                                                   const FileIdentity& identity) {
  if (isEmpty_) return std::vector<Property>();
  if (!content_) {
    const File file{pathInside(folder_, name), identity};
    return store_->read(
        [&](StateConnection& connection) { return propertiesOfFile(connection, file); });
  }
  const auto found = content_->entries.find(name);
  if (found != content_->entries.end()) {
    for (const Content::Entry& entry : found->second) {
      if (entry.identity.isSameFile(identity)) return entry.properties;
    }
  }
  return std::vector<Property>();
}

// At its end the transaction goes first, and the connection last.
struct PropertyEdit::Open {
  StateStore* store;
  File file;
  StateStore::Lease lease;
  std::unique_lock<std::timed_mutex> turn;
  sql::Transaction transaction;
  std::optional<std::int64_t> known;  // the file, when it has something or is going to
  std::vector<Absence> absences;
  bool hasChanged = false;
};

PropertyEdit::PropertyEdit(std::unique_ptr<Open> open) : open_(std::move(open)) {}
PropertyEdit::PropertyEdit(PropertyEdit&& other) noexcept = default;
PropertyEdit& PropertyEdit::operator=(PropertyEdit&& other) noexcept = default;
PropertyEdit::~PropertyEdit() = default;

Result<PropertyEdit> State::edit(const File& file) {
  if (!file.identity.exists()) {
    return stateError(StateError::Failed, "there is no file for properties");
  }
  if (Status valid = checkPath(file.path); !valid) return valid.error();
  for (bool isFirst = true;; isFirst = false) {
    auto lease = store_->connection();
    if (!lease) return lease.error();
    std::string lookedAt = store_->lookedAt();
    auto absences = lookForAbsences(**lease, file.identity.device, lookedAt);
    if (!absences) {
      if (!store_->recover(*lease, absences.error()) || !isFirst) {
        return asStateError(absences.error());
      }
      continue;
    }
    store_->setLookedAt(std::move(lookedAt));
    auto turn = store_->turnToWrite();
    if (!turn) return StateStore::tooBusy();
    auto transaction = sql::Transaction::begin((*lease)->database());
    Status begun = transaction ? Status() : transaction.error();
    if (begun) {
      const auto known = placeOf(**lease, file);
      if (known) {
        const auto id = *known ? std::optional((*known)->file) : std::nullopt;
        return PropertyEdit(std::make_unique<PropertyEdit::Open>(
            PropertyEdit::Open{store_.get(), file, std::move(*lease), std::move(turn),
                               std::move(*transaction), id, std::move(*absences)}));
      }
      begun = known.error();
    }
    if (!store_->recover(*lease, begun.error()) || !isFirst) return asStateError(begun.error());
  }
}

namespace {

Error editIsOver() { return stateError(StateError::Failed, "the change is over"); }

}  // namespace

Error PropertyEdit::fail(const Error& error) {
  StateStore& store = *open_->store;
  StateStore::Lease lease = std::move(open_->lease);
  { const auto ended = std::move(open_); }
  (void)store.recover(lease, error);
  return asStateError(error);
}

Result<std::optional<std::string>> PropertyEdit::value(std::string_view space,
                                                       std::string_view name) {
  if (!open_) return editIsOver();
  if (!open_->known) return std::optional<std::string>();
  auto value = valueOf(*open_->lease, *open_->known, space, name);
  if (!value) return fail(value.error());
  return value;
}

Status PropertyEdit::set(const Property& property) {
  if (!open_) return editIsOver();
  if (property.space.size() + property.name.size() > kMostNameBytes) {
    return stateError(StateError::TooMuch, "the name of the property is too long");
  }
  if (property.value.size() > kMostValueBytes) {
    return stateError(StateError::TooMuch, "the value of the property is too long");
  }
  if (property.name.empty()) return stateError(StateError::Failed, "the property has no name");
  StateConnection& connection = *open_->lease;
  if (!open_->known) {
    const auto made = madeFileOf(connection, open_->file);
    if (!made) return fail(made.error());
    open_->known = *made;
    open_->hasChanged = true;
  }
  std::size_t count = 0;
  std::size_t bytes = 0;
  const Status counted = connection.rows(
      kOtherProperties,
      [&](const sql::Statement& row) {
        count = static_cast<std::size_t>(row.number(0));
        bytes = static_cast<std::size_t>(row.number(1));
        return false;
      },
      *open_->known, Blob{property.space}, Blob{property.name});
  if (!counted) return fail(counted.error());
  const auto hasRoom = connection.hasRoom();
  if (!hasRoom) return fail(hasRoom.error());
  if (!*hasRoom) {
    return fail(stateError(StateError::Full, "the state database has reached its greatest size"));
  }
  if (count >= kMostProperties || bytes + sizeOf(property) > kMostPropertyBytes) {
    return stateError(StateError::TooMuch, "the file has too many properties");
  }
  open_->hasChanged = true;
  Status done = connection.change(kSetProperty, *open_->known, Blob{property.space},
                                  Blob{property.name}, Blob{property.value});
  // The answer says of each property whether it is set, before the commit.
  if (done) done = connection.database().flush();
  if (!done) return fail(done.error());
  return {};
}

Status PropertyEdit::remove(std::string_view space, std::string_view name) {
  if (!open_) return editIsOver();
  if (!open_->known) return {};
  open_->hasChanged = true;
  const Status removed =
      open_->lease->change(kRemoveProperty, *open_->known, Blob{space}, Blob{name});
  if (!removed) return fail(removed.error());
  return {};
}

Status PropertyEdit::commit() {
  if (!open_) return editIsOver();
  if (open_->hasChanged) {
    Status done = dropIfBare(*open_->lease, *open_->known);
    if (done) done = settlePlaces(*open_->lease, open_->file, open_->store->now());
    if (done) done = noteAbsences(*open_->lease, open_->absences, open_->store->now());
    if (done) done = open_->transaction.commit();
    if (!done) return fail(done.error());
  }
  open_.reset();
  return {};
}

Result<bool> State::willReplace(const File& file, const FileIdentity& next) {
  if (const Status valid = checkPath(file.path); !valid) return valid.error();
  const auto known = placesAt(*store_, file.path);
  if (!known) return known.error();
  if (known->empty()) return false;
  return store_->write([&](StateConnection& connection) -> Result<bool> {
    const auto places = placesAt(connection, file.path);
    if (!places) return places.error();
    // What is known of the file itself goes before a lock on its name.
    for (const bool isName : {false, true}) {
      for (const KnownPlace& place : *places) {
        const bool isMeant =
            isName ? !place.identity.exists()
                   : file.identity.exists() && place.identity.isSameFile(file.identity);
        if (!isMeant) continue;
        const Status added = addPlace(connection, file.path, next, place.file, store_->now());
        if (!added) return added.error();
        return true;
      }
    }
    return true;
  });
}

Status State::willCopy(const File& from, const File& to) {
  for (const File& file : {from, to}) {
    if (Status valid = checkPath(file.path); !valid) return valid;
  }
  const auto isNeeded = store_->read([&](StateConnection& connection) -> Result<bool> {
    const auto source = placeOf(connection, from);
    if (!source) return source.error();
    const auto target = placeOf(connection, to);
    if (!target) return target.error();
    return *source || *target;
  });
  if (!isNeeded) return isNeeded.error();
  if (!*isNeeded) return {};
  return store_->write([&](StateConnection& connection) -> Status {
    const auto source = placeOf(connection, from);
    if (!source) return source.error();
    std::int64_t count = 0;
    if (*source) {
      const auto has = connection.number(kHasProperties, (*source)->file);
      if (!has) return has.error();
      count = *has;
    }
    if (count == 0) {
      const auto target = placeOf(connection, to);
      if (!target) return target.error();
      return *target ? dropPlace(connection, to.path, **target) : Status();
    }
    const auto made = makeFile(connection);
    if (!made) return made.error();
    Status copied = connection.change(kCopyProperties, (*source)->file, *made);
    if (!copied) return copied;
    return addPlace(connection, to.path, to.identity, *made, store_->now());
  });
}

Status State::willMove(const std::string& from, const std::string& to) {
  for (const std::string& path : {from, to}) {
    if (Status valid = checkPath(path); !valid) return valid;
  }
  const auto isNeeded = isAnythingIn(*store_, Tree(from));
  if (!isNeeded) return isNeeded.error();
  if (!*isNeeded) return {};
  return store_->write(
      [&](StateConnection& connection) { return copyPlaces(connection, from, to, store_->now()); });
}

Status State::didNotMove(const std::string& from, const std::string& to) {
  for (const std::string& path : {from, to}) {
    if (Status valid = checkPath(path); !valid) return valid;
  }
  const auto isNeeded = isAnythingIn(*store_, Tree(to));
  if (!isNeeded) return isNeeded.error();
  if (!*isNeeded) return {};
  return store_->write(
      [&](StateConnection& connection) { return takeBackPlaces(connection, from, to); });
}

Status State::settle(const File& file) {
  if (Status valid = checkPath(file.path); !valid) return valid;
  const auto known = placesAt(*store_, file.path);
  if (!known) return known.error();
  const bool isSettled = std::all_of(known->begin(), known->end(), [&](const KnownPlace& place) {
    return place.identity.isSameFile(file.identity) && place.announced == 0;
  });
  if (isSettled) return {};
  return store_->write(
      [&](StateConnection& connection) { return settlePlaces(connection, file, store_->now()); });
}

Status State::forgetTree(const std::string& path) {
  if (Status valid = checkPath(path); !valid) return valid;
  const auto isNeeded = isAnythingIn(*store_, Tree(path));
  if (!isNeeded) return isNeeded.error();
  if (!*isNeeded) return {};
  return store_->write(
      [&](StateConnection& connection) { return forgetPlaces(connection, Tree(path)); });
}

State::State(Options options) : store_(std::make_unique<StateStore>(std::move(options))) {}
State::~State() = default;

}  // namespace tessel
