#include "host/debian/mod_tessel/download.h"

#include <apr_buckets.h>
#include <apr_portable.h>
#include <apr_strings.h>
#include <fcntl.h>
#include <http_config.h>
#include <http_log.h>
#include <http_protocol.h>
#include <http_request.h>
#include <unistd.h>
#include <util_filter.h>

#include <cerrno>

#include "host/debian/mod_tessel/etag.h"
#include "host/debian/mod_tessel/module.h"

namespace tessel {

namespace {

constexpr off_t kSmall = 1 << 15;

// All of a small file, read at once.
apr_bucket* contentBucket(const FileDescriptor& file, off_t size, apr_pool_t* pool,
                          apr_bucket_alloc_t* allocator) {
  auto* content = static_cast<char*>(apr_palloc(pool, static_cast<apr_size_t>(size)));
  apr_size_t read = 0;
  while (read < static_cast<apr_size_t>(size)) {
    const ssize_t got = ::read(file.get(), content + read, static_cast<size_t>(size) - read);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return nullptr;
    read += static_cast<apr_size_t>(got);
  }
  return apr_bucket_pool_create(content, read, pool, allocator);
}

apr_status_t closeFile(void* file) {
  delete static_cast<FileDescriptor*>(file);
  return APR_SUCCESS;
}

}  // namespace

int answerDownload(request_rec* request, const ShareRequest& share) {
  const Place& place = share.found.target;
  if (!place.exists()) return HTTP_NOT_FOUND;
  if (place.status.isFolder()) return HTTP_FORBIDDEN;
  if (const int status = ap_discard_request_body(request); status != OK) return status;
  auto file = reopen(place.item, O_RDONLY | O_NONBLOCK);
  if (!file) {
    ap_log_rerror(APLOG_MARK, APLOG_INFO, 0, request, "%s: %s", request->uri,
                  file.error().description.c_str());
    return httpStatusOf(file.error().code);
  }
  const auto status = statusOf(file->get());
  if (!status) return HTTP_INTERNAL_SERVER_ERROR;

  constexpr std::int64_t kNanoseconds = 1000;  // in a microsecond
  ap_update_mtime(request, status->modified / kNanoseconds);
  ap_set_last_modified(request);
  apr_table_setn(request->headers_out, "ETag", apr_pstrdup(request->pool, etagOf(*status).c_str()));
  ap_set_accept_ranges(request);
  ap_set_content_length(request, status->size);
  if (const int met = ap_meets_conditions(request); met != OK) return met;

  conn_rec* connection = request->connection;
  apr_bucket_brigade* brigade = apr_brigade_create(request->pool, connection->bucket_alloc);
  if (request->header_only == 0 && status->size > 0 && status->size <= kSmall) {
    apr_bucket* content =
        contentBucket(*file, status->size, request->pool, connection->bucket_alloc);
    // Somebody has just cut it off.
    if (content == nullptr) return HTTP_INTERNAL_SERVER_ERROR;
    APR_BRIGADE_INSERT_TAIL(brigade, content);
  } else if (request->header_only == 0 && status->size > 0) {
    auto* kept = new FileDescriptor(*std::move(file));
    apr_pool_cleanup_register(request->pool, kept, closeFile, closeFile);
    apr_file_t* opened = nullptr;
    int descriptor = kept->get();
    if (apr_os_file_put(&opened, &descriptor, APR_FOPEN_READ, request->pool) != APR_SUCCESS) {
      return HTTP_INTERNAL_SERVER_ERROR;
    }
    // Not mapped into memory: whoever cuts off a mapped file kills the process that reads it.
    apr_bucket* content = apr_brigade_insert_file(brigade, opened, 0, status->size, request->pool);
    (void)apr_bucket_file_enable_mmap(content, 0);
  }
  APR_BRIGADE_INSERT_TAIL(brigade, apr_bucket_eos_create(connection->bucket_alloc));
  const apr_status_t sent = ap_pass_brigade(request->output_filters, brigade);
  if (sent != APR_SUCCESS && request->connection->aborted == 0 && request->status == HTTP_OK) {
    ap_log_rerror(APLOG_MARK, APLOG_INFO, sent, request, "%s: cannot be sent", request->uri);
  }
  return OK;
}

}  // namespace tessel
