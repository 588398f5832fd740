// POSIX access lists (acl(5)) of files and folders, by descriptor: also by one that was opened with
// O_PATH, which the access-list library cannot do. Any number of threads may call all of this.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/base/result.h"

namespace tessel {

class AccessList {
 public:
  // The kernel's numbers (linux/posix_acl.h), in whose order entries stand in a list.
  enum class Tag : std::uint16_t {
    Owner = 1,
    User = 2,
    OwningGroup = 4,
    Group = 8,
    Mask = 16,
    Others = 32
  };
  static constexpr std::uint16_t kRead = 4;
  static constexpr std::uint16_t kWrite = 2;
  static constexpr std::uint16_t kExecute = 1;
  static constexpr std::uint32_t kNobody = 0xFFFFFFFF;  // the id of entries that name nobody

  // The list that says the same as these permission bits.
  static AccessList fromMode(mode_t mode);
  // The form in which the kernel hands lists over, and back (linux/posix_acl_xattr.h).
  std::string bytes() const;
  static Result<AccessList> fromBytes(std::string_view bytes);

  // What an entry says; none when there is no such entry.
  std::optional<std::uint16_t> permissions(Tag tag, std::uint32_t id = kNobody) const;
  // What an entry of the group class (users and groups by name, the owning group) is good for under
  // the mask.
  std::uint16_t effective(Tag tag, std::uint32_t id = kNobody) const;

  // Lets a user or group do this besides what it could. Nobody else can do more than before: where
  // the mask must grow, what it kept from other entries is taken from them.
  void allow(Tag tag, std::uint32_t id, std::uint16_t permissions);
  // Gives an entry exactly this, or takes it out. With the last name in the list goes the mask.
  void set(Tag tag, std::uint32_t id, std::uint16_t permissions);
  void remove(Tag tag, std::uint32_t id);

  bool operator==(const AccessList&) const = default;

 private:
  struct Entry {
    Tag tag;
    std::uint16_t permissions;
    std::uint32_t id;
    bool operator==(const Entry&) const = default;
  };

  std::vector<Entry>::iterator find(Tag tag, std::uint32_t id);
  bool hasNames() const;

  std::vector<Entry> entries_;
};

// The list of an open file or folder, that of its mode when it has no other, and the one that a
// folder gives to what is made in it, which may be absent. The error has errno(3) as its code:
// EOPNOTSUPP where the file system has no access lists.
Result<AccessList> accessList(int descriptor);
Result<std::optional<AccessList>> defaultAccessList(int descriptor);
Status setAccessList(int descriptor, const AccessList& list);
Status setDefaultAccessList(int descriptor, const std::optional<AccessList>& list);

// An extended attribute of an open file (xattr(7)). None when it is absent; to set none removes it.
Result<std::optional<std::string>> extendedAttribute(int descriptor, const char* name);
Status setExtendedAttribute(int descriptor, const char* name,
                            const std::optional<std::string>& value);

}  // namespace tessel
