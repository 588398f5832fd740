#include "host/debian/mod_tessel/content_type.h"

#include <apr_strings.h>
#include <http_config.h>
#include <http_request.h>

#include <algorithm>

namespace tessel {

std::string_view ContentTypes::ofFile(std::string_view name) {
  constexpr size_t kMostKnown = 1000;
  name.remove_prefix(std::min(name.find_first_not_of('.'), name.size()));
  const size_t dot = name.find('.');
  if (dot == std::string_view::npos) return {};
  const std::string_view extensions = name.substr(dot);
  if (const auto known = known_.find(extensions); known != known_.end()) return known->second;
  if (known_.size() == kMostKnown) known_.clear();

  // Apache tells types by a request's file name alone, so a request of that name does.
  apr_pool_t* pool = nullptr;
  if (apr_pool_create(&pool, request_->pool) != APR_SUCCESS) return {};
  request_rec asked = *request_;
  asked.pool = pool;
  asked.main = request_;
  asked.filename = apr_psprintf(pool, "/nonexistent/file%.*s", static_cast<int>(extensions.size()),
                                extensions.data());
  asked.canonical_filename = asked.filename;
  asked.uri = asked.filename;
  asked.path_info = apr_pstrdup(pool, "");
  asked.finfo = apr_finfo_t{};
  asked.finfo.filetype = APR_REG;
  asked.content_type = nullptr;
  asked.content_encoding = nullptr;
  asked.content_languages = nullptr;
  asked.handler = nullptr;
  asked.notes = apr_table_make(pool, 1);
  asked.headers_out = apr_table_make(pool, 1);
  asked.err_headers_out = apr_table_make(pool, 1);
  std::string type;
  if (ap_run_type_checker(&asked) == OK && asked.content_type != nullptr) type = asked.content_type;
  apr_pool_destroy(pool);
  return known_.emplace(extensions, std::move(type)).first->second;
}

}  // namespace tessel
