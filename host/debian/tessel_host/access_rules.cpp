#include "host/debian/tessel_host/access_rules.h"

#include <array>
#include <cerrno>
#include <string_view>

namespace tessel {

namespace {

using Tag = AccessList::Tag;

constexpr std::uint16_t kReadWrite = AccessList::kRead | AccessList::kWrite;
constexpr std::uint16_t kAll = kReadWrite | AccessList::kExecute;
constexpr char kVersion = '1';
constexpr char kNone = '-';

std::uint16_t common(std::uint16_t a, std::uint16_t b) { return static_cast<std::uint16_t>(a & b); }

// Root needs no entry.
void allowKeepers(AccessList& list, const Keepers& keepers, std::uint16_t most, bool withGroup) {
  const std::uint16_t owner = common(keepers.ownerMay, most);
  if (keepers.owner != 0 && owner != 0 && !list.permissions(Tag::User, keepers.owner)) {
    list.allow(Tag::User, keepers.owner, owner);
  }
  const std::uint16_t group = common(keepers.groupMay, most);
  if (withGroup && group != 0 && !list.permissions(Tag::Group, keepers.group)) {
    list.allow(Tag::Group, keepers.group, group);
  }
}

// For what is made in a folder. Whoever makes it owns it; its group is the folder's where the
// folder hands it on, and otherwise the maker's, which is let do no more than others.
AccessList forNewIn(const struct stat& folder, const std::optional<AccessList>& present,
                    const Keepers& keepers, uid_t apache) {
  constexpr unsigned kOwnerShift = 6;
  constexpr unsigned kGroupShift = 3;
  const bool handsGroupOn = (folder.st_mode & S_ISGID) != 0;
  const unsigned group = handsGroupOn ? keepers.groupMay : keepers.othersMay;
  AccessList list = present ? *present
                            : AccessList::fromMode(unsigned{kAll} << kOwnerShift |
                                                   group << kGroupShift | keepers.othersMay);
  list.allow(Tag::User, apache, kAll);
  allowKeepers(list, keepers, kAll, !handsGroupOn);
  return list;
}

void setAsIn(AccessList& list, const AccessList* before, uid_t apache) {
  const auto was = before != nullptr ? before->permissions(Tag::User, apache) : std::nullopt;
  if (was) {
    list.set(Tag::User, apache, *was);
  } else {
    list.remove(Tag::User, apache);
  }
}

void put(std::string& bytes, const std::optional<AccessList>& list) {
  const std::string content = list ? list->bytes() : "";
  bytes += static_cast<char>(content.size() & 0xFFU);
  bytes += static_cast<char>(content.size() >> 8U);
  bytes += list ? kVersion : kNone;
  bytes += content;
}

bool take(std::string_view& bytes, std::optional<AccessList>& list) {
  constexpr size_t kHead = 3;
  if (bytes.size() < kHead) return false;
  const size_t size =
      static_cast<unsigned char>(bytes[0]) + (size_t{static_cast<unsigned char>(bytes[1])} << 8U);
  const bool isThere = bytes[2] == kVersion;
  bytes.remove_prefix(kHead);
  if (bytes.size() < size) return false;
  auto read = isThere ? AccessList::fromBytes(bytes.substr(0, size)) : Error{""};
  bytes.remove_prefix(size);
  if (isThere && !read) return false;
  if (read) list = *std::move(read);
  return true;
}

}  // namespace

Keepers keepersOf(const struct stat& folder, const AccessList& own, uid_t apache,
                  const Keepers& above) {
  if (folder.st_uid == apache) return above;
  return {folder.st_uid, folder.st_gid, own.permissions(Tag::Owner).value_or(0),
          own.effective(Tag::OwningGroup), own.permissions(Tag::Others).value_or(0)};
}

AccessLists withApache(const AccessLists& lists, const struct stat& status, uid_t apache,
                       const Keepers& keepers) {
  AccessLists result = lists;
  const bool isFolder = S_ISDIR(status.st_mode);
  const std::uint16_t wanted = isFolder ? kAll : kReadWrite;
  if (status.st_uid == apache) {
    allowKeepers(result.own, keepers, wanted, true);
  } else {
    result.own.allow(Tag::User, apache, wanted);
  }
  if (isFolder) result.forNew = forNewIn(status, lists.forNew, keepers, apache);
  return result;
}

AccessLists withApacheAsIn(const AccessLists& lists, const AccessLists& before, uid_t apache) {
  AccessLists result = lists;
  setAsIn(result.own, &before.own, apache);
  if (result.forNew) {
    setAsIn(*result.forNew, before.forNew ? &*before.forNew : nullptr, apache);
  }
  return result;
}

std::string GrantRecord::bytes() const {
  std::string bytes;
  put(bytes, before.own);
  put(bytes, before.forNew);
  put(bytes, after.own);
  put(bytes, after.forNew);
  return bytes;
}

Result<GrantRecord> GrantRecord::fromBytes(std::string_view bytes) {
  std::array<std::optional<AccessList>, 4> lists;
  for (auto& list : lists) {
    if (!take(bytes, list)) return Error{"the record of a grant cannot be read", EINVAL};
  }
  if (!lists[0] || !lists[2]) return Error{"the record of a grant cannot be read", EINVAL};
  return GrantRecord{{*lists[0], lists[1]}, {*lists[2], lists[3]}};
}

}  // namespace tessel
