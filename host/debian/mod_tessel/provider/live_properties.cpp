#include "host/debian/mod_tessel/provider/live_properties.h"

#include <apr_date.h>
#include <apr_strings.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <limits>
#include <string>
#include <string_view>

#include "host/debian/mod_tessel/property_answer.h"
#include "host/debian/mod_tessel/provider/resource.h"

// mod_dav's name for what it takes to undo a change.
struct dav_liveprop_rollback {
  tessel::FileStatus before;
};

namespace tessel {

namespace {

extern const dav_hooks_liveprop kHooks;

enum NameSpace { kDAV, kApache, kMicrosoft };

constexpr std::array<const char*, 4> kNameSpaces{"DAV:", kApacheProperties, kMicrosoftProperties,
                                                 nullptr};

dav_liveprop_spec spec(NameSpace nameSpace, const char* name, LiveProperty property,
                       bool isWritable = false) {
  // 0 says that there is no such property.
  return {nameSpace, name, static_cast<int>(property) + 1, isWritable ? 1 : 0};
}

// NOLINTNEXTLINE(cert-err58-cpp)
const std::array kSpecs{
    spec(kDAV, "creationdate", LiveProperty::CreationDate),
    spec(kDAV, "getcontentlength", LiveProperty::ContentLength),
    spec(kDAV, "getetag", LiveProperty::ETag),
    spec(kDAV, "getlastmodified", LiveProperty::LastModified),
    spec(kDAV, "quota-available-bytes", LiveProperty::QuotaAvailable),
    spec(kDAV, "quota-used-bytes", LiveProperty::QuotaUsed),
    spec(kApache, "executable", LiveProperty::Executable, true),
    spec(kMicrosoft, "Win32LastModifiedTime", LiveProperty::Win32LastModified, true),
    dav_liveprop_spec{0, nullptr, 0, 0},
};

// NOLINTNEXTLINE(cert-err58-cpp)
const dav_liveprop_group kGroup{kSpecs.data(), kNameSpaces.data(), &kHooks};

LiveProperty propertyOf(int id) { return static_cast<LiveProperty>(id - 1); }

ListedItem itemOf(const dav_resource* resource) {
  ListedItem item;
  item.status = resource->info->found.target.status;
  item.isFile = resource->exists != 0;
  item.isCollection = resource->collection != 0;
  return item;
}

dav_prop_insert insert(const dav_resource* resource, int id, dav_prop_insert what,
                       apr_text_header* text) {
  try {
    std::string value;
    if (!appendValue(value, propertyOf(id), itemOf(resource))) {
      return DAV_PROP_INSERT_NOTDEF;
    }
    const dav_liveprop_spec* info = nullptr;
    const long number = dav_get_liveprop_info(id, &kGroup, &info);
    const char* form = what == DAV_PROP_INSERT_VALUE ? "<lp%ld:%s>%s</lp%ld:%s>\n"
                       : what == DAV_PROP_INSERT_NAME
                           ? "<lp%ld:%s/>\n"
                           : "<D:supported-live-property><D:prop><lp%ld:%s/></D:prop>"
                             "</D:supported-live-property>\n";
    apr_text_append(
        resource->pool, text,
        apr_psprintf(resource->pool, form, number, info->name, value.c_str(), number, info->name));
    return what;
  } catch (...) {
    return DAV_PROP_INSERT_NOTSUPP;
  }
}

int isWritable(const dav_resource* /*resource*/, int id) {
  const dav_liveprop_spec* info = nullptr;
  (void)dav_get_liveprop_info(id, &kGroup, &info);
  return info->is_writable;
}

const char* contentOf(const apr_xml_elem* element, apr_pool_t* pool) {
  return element->first_child == nullptr ? dav_xml_get_cdata(element, pool, 1) : "";
}

constexpr std::int64_t kNanoseconds = 1000;  // in a microsecond

// What a change is, from validation to execution.
struct Change {
  bool isExecutable;
  std::int64_t modified;  // nanoseconds since 1970
};

dav_error* validate(const dav_resource* resource, const apr_xml_elem* element, int operation,
                    void** context, int* deferToDead) {
  const auto* info = static_cast<const dav_elem_private*>(element->priv);
  const LiveProperty property = propertyOf(info->propid);
  if (operation == DAV_PROP_OP_DELETE) {
    // Some clients take back all that they know of.
    if (property == LiveProperty::Win32LastModified) *deferToDead = 1;
    if (property == LiveProperty::Win32LastModified) return nullptr;
    return dav_new_error(resource->pool, HTTP_CONFLICT, 0, 0, "The property cannot be removed.");
  }
  auto* change = static_cast<Change*>(apr_pcalloc(resource->pool, sizeof(Change)));
  *context = change;
  const std::string_view content = contentOf(element, resource->pool);
  if (property == LiveProperty::Executable) {
    if (resource->collection != 0) {
      return dav_new_error(resource->pool, HTTP_CONFLICT, 0, 0, "A folder is not executable.");
    }
    change->isExecutable = content == "T";
    if (content == "T" || content == "F") return nullptr;
  } else {
    const apr_time_t time = apr_date_parse_http(content.data());
    constexpr apr_time_t kMost = std::numeric_limits<std::int64_t>::max() / kNanoseconds;
    change->modified = std::clamp(time, -kMost, kMost) * kNanoseconds;
    if (time != APR_DATE_BAD) return nullptr;
  }
  return dav_new_error(resource->pool, HTTP_CONFLICT, 0, 0, "The value is not understood.");
}

dav_error* apply(const dav_resource* resource, LiveProperty property, mode_t mode,
                 std::int64_t modified) {
  const Place& place = resource->info->found.target;
  const std::string path = descriptorPath(place.item.get());
  const std::array<timespec, 2> times{timespec{0, UTIME_OMIT}, timespecOf(modified)};
  const int result = property == LiveProperty::Executable
                         ? ::chmod(path.c_str(), mode)
                         : ::utimensat(AT_FDCWD, path.c_str(), times.data(), 0);
  if (result == 0) return nullptr;
  return fileError(resource->pool, systemError("cannot be set", errno), "The property");
}

dav_error* execute(const dav_resource* resource, const apr_xml_elem* element, int operation,
                   void* context, dav_liveprop_rollback** rollback) {
  if (operation == DAV_PROP_OP_DELETE) return nullptr;
  return guarded(resource->pool, [&]() -> dav_error* {
    const auto* info = static_cast<const dav_elem_private*>(element->priv);
    const auto* change = static_cast<const Change*>(context);
    const auto before = statusOf(resource->info->found.target.item.get());
    if (!before) return fileError(resource->pool, before.error(), "The file");
    auto* saved = static_cast<dav_liveprop_rollback*>(
        apr_pcalloc(resource->pool, sizeof(dav_liveprop_rollback)));
    saved->before = *before;
    *rollback = saved;
    constexpr mode_t kPermissions = 07777;
    const mode_t mode = before->mode & kPermissions;
    return apply(resource, propertyOf(info->propid),
                 change->isExecutable ? mode | S_IXUSR : mode & ~static_cast<mode_t>(S_IXUSR),
                 change->modified);
  });
}

void commit(const dav_resource* /*resource*/, int /*operation*/, void* /*context*/,
            dav_liveprop_rollback* /*rollback*/) {}

dav_error* undo(const dav_resource* resource, int /*operation*/, void* /*context*/,
                dav_liveprop_rollback* rollback) {
  if (rollback == nullptr) return nullptr;
  return guarded(resource->pool, [&]() -> dav_error* {
    constexpr mode_t kPermissions = 07777;
    const FileStatus& before = rollback->before;
    if (dav_error* error = apply(resource, LiveProperty::Win32LastModified, 0, before.modified);
        error != nullptr) {
      return error;
    }
    return apply(resource, LiveProperty::Executable, before.mode & kPermissions, 0);
  });
}

const dav_hooks_liveprop kHooks{insert, isWritable, kNameSpaces.data(), validate, execute, commit,
                                undo,   nullptr};

int find(const dav_resource* resource, const char* nameSpace, const char* name,
         const dav_hooks_liveprop** hooks) {
  if (resource->hooks != &kRepositoryHooks) return 0;
  return dav_do_find_liveprop(nameSpace, name, &kGroup, hooks);
}

void insertAll(request_rec* /*request*/, const dav_resource* resource, dav_prop_insert what,
               apr_text_header* text) {
  if (resource->hooks != &kRepositoryHooks) return;
  for (const dav_liveprop_spec& property : kSpecs) {
    if (property.name != nullptr) (void)insert(resource, property.propid, what, text);
  }
}

// As servers of Apache have long been told by.
void gatherURIs(apr_array_header_t* uris) {
  APR_ARRAY_PUSH(uris, const char*) = "<http://apache.org/dav/propset/fs/1>";
}

}  // namespace

void registerLiveProperties(apr_pool_t* pool) {
  dav_register_liveprop_group(pool, &kGroup);
  dav_hook_find_liveprop(find, nullptr, nullptr, APR_HOOK_MIDDLE);
  dav_hook_insert_all_liveprops(insertAll, nullptr, nullptr, APR_HOOK_MIDDLE);
  dav_hook_gather_propsets(gatherURIs, nullptr, nullptr, APR_HOOK_MIDDLE);
}

}  // namespace tessel
