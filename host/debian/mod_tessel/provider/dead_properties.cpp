// Properties that clients set, as mod_dav asks for them (mod_dav.h, dav_hooks_propdb). All changes
// of one request are one transaction, which ends when mod_dav closes what it has opened.
#include "host/debian/mod_tessel/provider/dead_properties.h"

#include "host/debian/mod_tessel/dav.h"
// It comes first: Apache's other headers need its types.
#include <apr_buckets.h>
#include <apr_strings.h>
#include <http_config.h>
#include <http_log.h>
#include <http_protocol.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "host/debian/mod_tessel/element_text.h"
#include "host/debian/mod_tessel/module.h"
#include "host/debian/mod_tessel/provider/resource.h"

// mod_dav's names for the properties of a resource while they are open, for the namespaces of a
// request, and for what it takes to undo a change.
struct dav_db {
  const dav_resource* resource;
  std::optional<tessel::PropertyEdit> edit;  // none when open for reading
  std::vector<tessel::Property> read;
  size_t next = 0;
  bool isUndone = false;
};
struct dav_namespace_map {
  const apr_array_header_t* namespaces;
};
struct dav_deadprop_rollback {
  bool unused;
};

namespace tessel {

namespace {

constexpr const char* kFailedFilter = "TESSEL_NOT_STORED";

// In place of an answer that says that all was stored: an error, as Apache's filters know it.
apr_status_t sayNotStored(ap_filter_t* filter, apr_bucket_brigade* brigade) {
  apr_bucket_alloc_t* allocator = filter->c->bucket_alloc;
  const auto status = static_cast<const dav_error*>(filter->ctx)->status;
  apr_brigade_cleanup(brigade);
  ap_remove_output_filter(filter);
  APR_BRIGADE_INSERT_TAIL(brigade,
                          ap_bucket_error_create(status, nullptr, filter->r->pool, allocator));
  APR_BRIGADE_INSERT_TAIL(brigade, apr_bucket_eos_create(allocator));
  return ap_pass_brigade(filter->next, brigade);
}

dav_error* open(apr_pool_t* pool, const dav_resource* resource, int readOnly, dav_db** database) {
  return guarded(pool, [&]() -> dav_error* {
    auto made = std::make_unique<dav_db>();
    made->resource = resource;
    if (readOnly != 0) {
      auto read = stateOf(resource).properties(fileOf(resource));
      if (!read) return stateError(resource->info->request, read.error());
      made->read = *std::move(read);
    } else {
      auto edit = stateOf(resource).edit(fileOf(resource));
      if (!edit) return stateError(resource->info->request, edit.error());
      made->edit.emplace(*std::move(edit));
    }
    *database = made.release();
    return nullptr;
  });
}

void close(dav_db* database) {
  const std::unique_ptr<dav_db> owned(database);
  if (!database->edit || database->isUndone) return;
  request_rec* request = database->resource->info->request;
  if (Status stored = database->edit->commit(); !stored) {
    // mod_dav has made up its answer by now and asks no more.
    dav_error* error = stateError(request, stored.error());
    ap_log_rerror(APLOG_MARK, APLOG_ERR, 0, request, "properties are not stored: %s", error->desc);
    (void)ap_add_output_filter(kFailedFilter, error, request, request->connection);
  }
}

dav_error* defineNamespaces(dav_db* /*database*/, dav_xmlns_info* /*names*/) {
  return nullptr;  // each value brings its own
}

Result<std::optional<std::string>> valueOf(dav_db* database, const dav_prop_name* name) {
  if (database->edit) return database->edit->value(name->ns, name->name);
  for (const Property& property : database->read) {
    if (property.space == name->ns && property.name == name->name) {
      return std::optional(property.value);
    }
  }
  return std::optional<std::string>();
}

dav_error* outputValue(dav_db* database, const dav_prop_name* name, dav_xmlns_info* /*names*/,
                       apr_text_header* text, int* found) {
  return guarded(database->resource->pool, [&]() -> dav_error* {
    const auto value = valueOf(database, name);
    if (!value) return stateError(database->resource->info->request, value.error());
    *found = value->has_value() ? 1 : 0;
    if (*value) {
      apr_text_append(database->resource->pool, text,
                      apr_pstrmemdup(database->resource->pool, (*value)->data(), (*value)->size()));
    }
    return nullptr;
  });
}

dav_error* mapNamespaces(dav_db* database, const apr_array_header_t* namespaces,
                         dav_namespace_map** map) {
  *map = static_cast<dav_namespace_map*>(
      apr_palloc(database->resource->pool, sizeof(dav_namespace_map)));
  (*map)->namespaces = namespaces;
  return nullptr;
}

dav_error* store(dav_db* database, const dav_prop_name* name, const apr_xml_elem* element,
                 dav_namespace_map* map) {
  request_rec* request = database->resource->info->request;
  return guarded(request->pool, [&]() -> dav_error* {
    // Before any work that takes longer the longer it is.
    if (std::strlen(name->ns) + std::strlen(name->name) > kMostNameBytes) {
      return dav_new_error(request->pool, HTTP_INSUFFICIENT_STORAGE, 0, 0,
                           "The name of the property is too long.");
    }
    auto text = elementText(element, map->namespaces);
    if (!text) {
      return dav_new_error(request->pool, HTTP_BAD_REQUEST, 0, 0, "The property is ill-formed.");
    }
    Status set = database->edit->set({name->ns, name->name, *std::move(text)});
    return set ? nullptr : stateError(request, set.error());
  });
}

dav_error* removeProperty(dav_db* database, const dav_prop_name* name) {
  request_rec* request = database->resource->info->request;
  return guarded(request->pool, [&]() -> dav_error* {
    Status removed = database->edit->remove(name->ns, name->name);
    return removed ? nullptr : stateError(request, removed.error());
  });
}

int exists(dav_db* database, const dav_prop_name* name) {
  try {
    const auto value = valueOf(database, name);
    return value && value->has_value() ? 1 : 0;
  } catch (...) {
    return 0;
  }
}

dav_error* nextName(dav_db* database, dav_prop_name* name) {
  name->ns = name->name = nullptr;
  if (database->next < database->read.size()) {
    const Property& property = database->read[database->next++];
    name->ns = property.space.c_str();
    name->name = property.name.c_str();
  }
  return nullptr;
}

dav_error* firstName(dav_db* database, dav_prop_name* name) {
  return guarded(database->resource->pool, [&]() -> dav_error* {
    database->next = 0;
    if (database->edit && database->read.empty()) {
      auto read = stateOf(database->resource).properties(fileOf(database->resource));
      if (!read) return stateError(database->resource->info->request, read.error());
      database->read = *std::move(read);
    }
    return nextName(database, name);
  });
}

// One change is undone when all are.
dav_error* getRollback(dav_db* database, const dav_prop_name* /*name*/,
                       dav_deadprop_rollback** rollback) {
  *rollback = static_cast<dav_deadprop_rollback*>(
      apr_pcalloc(database->resource->pool, sizeof(dav_deadprop_rollback)));
  return nullptr;
}

dav_error* applyRollback(dav_db* database, dav_deadprop_rollback* /*rollback*/) {
  database->isUndone = true;
  return nullptr;
}

}  // namespace

const dav_hooks_propdb kDeadPropertyHooks = {
    open,   close,     defineNamespaces, outputValue, mapNamespaces, store,   removeProperty,
    exists, firstName, nextName,         getRollback, applyRollback, nullptr,
};

void registerDeadProperties() {
  (void)ap_register_output_filter(kFailedFilter, sayNotStored, nullptr, AP_FTYPE_RESOURCE);
}

}  // namespace tessel
