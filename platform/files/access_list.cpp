#include "platform/files/access_list.h"

#include <linux/limits.h>
#include <linux/posix_acl_xattr.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <fcntl.h>
#include <unistd.h>
#include <algorithm>
#include <array>
#include <cerrno>

#include "platform/base/system_error.h"

namespace tessel {

namespace {

constexpr const char* kAccess = "system.posix_acl_access";
constexpr const char* kDefault = "system.posix_acl_default";
constexpr std::size_t kEntrySize = sizeof(posix_acl_xattr_entry);
constexpr unsigned kByte = 8;

void put(std::string& bytes, std::uint32_t number, unsigned size) {
  for (unsigned i = 0; i < size; ++i) bytes += static_cast<char>((number >> (i * kByte)) & 0xFFU);
}

std::uint32_t take(std::string_view& bytes, unsigned size) {
  std::uint32_t number = 0;
  for (unsigned i = 0; i < size; ++i) {
    number |= std::uint32_t{static_cast<unsigned char>(bytes[i])} << (i * kByte);
  }
  bytes.remove_prefix(size);
  return number;
}

bool isOfGroupClass(AccessList::Tag tag) {
  return tag == AccessList::Tag::User || tag == AccessList::Tag::OwningGroup ||
         tag == AccessList::Tag::Group;
}

// By which the system reaches what a descriptor stands for, O_PATH or not.
std::string pathOf(int descriptor) { return "/proc/self/fd/" + std::to_string(descriptor); }

}  // namespace

AccessList AccessList::fromMode(mode_t mode) {
  constexpr unsigned kOwnerShift = 6;
  constexpr unsigned kGroupShift = 3;
  constexpr unsigned kAll = 7;
  AccessList list;
  const auto bits = [mode](unsigned shift) {
    return static_cast<std::uint16_t>((mode >> shift) & kAll);
  };
  list.entries_ = {{Tag::Owner, bits(kOwnerShift), kNobody},
                   {Tag::OwningGroup, bits(kGroupShift), kNobody},
                   {Tag::Others, bits(0), kNobody}};
  return list;
}

std::string AccessList::bytes() const {
  std::string bytes;
  put(bytes, POSIX_ACL_XATTR_VERSION, 4);
  for (const Entry& entry : entries_) {
    put(bytes, static_cast<std::uint16_t>(entry.tag), 2);
    put(bytes, entry.permissions, 2);
    put(bytes, entry.id, 4);
  }
  return bytes;
}

Result<AccessList> AccessList::fromBytes(std::string_view bytes) {
  const Error broken{"an access list cannot be read", EINVAL};
  if (bytes.size() < 4 || (bytes.size() - 4) % kEntrySize != 0 ||
      take(bytes, 4) != POSIX_ACL_XATTR_VERSION) {
    return broken;
  }
  AccessList list;
  while (!bytes.empty()) {
    const auto tag = static_cast<Tag>(take(bytes, 2));
    const auto permissions = static_cast<std::uint16_t>(take(bytes, 2));
    list.entries_.push_back({tag, permissions, take(bytes, 4)});
  }
  return list;
}

std::vector<AccessList::Entry>::iterator AccessList::find(Tag tag, std::uint32_t id) {
  return std::find_if(entries_.begin(), entries_.end(),
                      [&](const Entry& entry) { return entry.tag == tag && entry.id == id; });
}

bool AccessList::hasNames() const {
  return std::any_of(entries_.begin(), entries_.end(), [](const Entry& entry) {
    return entry.tag == Tag::User || entry.tag == Tag::Group;
  });
}

std::optional<std::uint16_t> AccessList::permissions(Tag tag, std::uint32_t id) const {
  for (const Entry& entry : entries_) {
    if (entry.tag == tag && entry.id == id) return entry.permissions;
  }
  return std::nullopt;
}

std::uint16_t AccessList::effective(Tag tag, std::uint32_t id) const {
  const unsigned mask = permissions(Tag::Mask).value_or(kRead | kWrite | kExecute);
  return static_cast<std::uint16_t>(permissions(tag, id).value_or(0) & mask);
}

void AccessList::set(Tag tag, std::uint32_t id, std::uint16_t permissions) {
  const auto found = find(tag, id);
  if (found != entries_.end()) {
    found->permissions = permissions;
    return;
  }
  const auto place = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
    return entry.tag > tag || (entry.tag == tag && entry.id > id);
  });
  entries_.insert(place, {tag, permissions, id});
}

void AccessList::allow(Tag tag, std::uint32_t id, std::uint16_t permissions) {
  const auto mask = this->permissions(Tag::Mask);
  unsigned newMask = mask.value_or(effective(Tag::OwningGroup)) | unsigned{permissions};
  const auto wanted = static_cast<std::uint16_t>(effective(tag, id) | permissions);
  if (mask && newMask != *mask) {
    for (Entry& entry : entries_) {
      if (isOfGroupClass(entry.tag)) entry.permissions &= *mask;
    }
  }
  set(tag, id, wanted);
  set(Tag::Mask, kNobody, static_cast<std::uint16_t>(newMask));
}

void AccessList::remove(Tag tag, std::uint32_t id) {
  const auto found = find(tag, id);
  if (found == entries_.end()) return;
  entries_.erase(found);
  const auto mask = find(Tag::Mask, kNobody);
  if (hasNames() || mask == entries_.end()) return;
  const std::uint16_t kept = mask->permissions;
  entries_.erase(mask);
  find(Tag::OwningGroup, kNobody)->permissions &= kept;
}

Result<std::optional<std::string>> extendedAttribute(int descriptor, const char* name) {
  std::string value(256, '\0');
  for (;;) {
    const ssize_t size = ::getxattr(pathOf(descriptor).c_str(), name, value.data(), value.size());
    if (size >= 0) {
      value.resize(static_cast<std::size_t>(size));
      return std::optional(value);
    }
    if (errno == ENODATA) return std::optional<std::string>();
    if (errno != ERANGE || value.size() > XATTR_SIZE_MAX) return systemError(name);
    value.resize(2 * value.size());
  }
}

Status setExtendedAttribute(int descriptor, const char* name,
                            const std::optional<std::string>& value) {
  const std::string path = pathOf(descriptor);
  const int done = value ? ::setxattr(path.c_str(), name, value->data(), value->size(), 0)
                         : ::removexattr(path.c_str(), name);
  if (done == 0 || (!value && errno == ENODATA)) return {};
  return systemError(name);
}

Result<AccessList> accessList(int descriptor) {
  const auto bytes = extendedAttribute(descriptor, kAccess);
  if (!bytes) return bytes.error();
  if (*bytes) return AccessList::fromBytes(**bytes);
  struct stat status {};
  if (::fstatat(descriptor, "", &status, AT_EMPTY_PATH) != 0) return systemError("fstat");
  return AccessList::fromMode(status.st_mode);
}

Result<std::optional<AccessList>> defaultAccessList(int descriptor) {
  const auto bytes = extendedAttribute(descriptor, kDefault);
  if (!bytes) return bytes.error();
  if (!*bytes) return std::optional<AccessList>();
  auto list = AccessList::fromBytes(**bytes);
  if (!list) return list.error();
  return std::optional(*std::move(list));
}

Status setAccessList(int descriptor, const AccessList& list) {
  return setExtendedAttribute(descriptor, kAccess, list.bytes());
}

Status setDefaultAccessList(int descriptor, const std::optional<AccessList>& list) {
  return setExtendedAttribute(descriptor, kDefault,
                              list ? std::optional(list->bytes()) : std::nullopt);
}

}  // namespace tessel
