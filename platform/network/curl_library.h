// libcurl, loaded when a request is made. It brings along some twenty libraries; linked to the
// program, they would more than double the time of every command that asks nobody anything.
#pragma once

#include <curl/curl.h>

#include <memory>

#include "platform/base/result.h"

namespace tessel {

// The library's functions under their names, as far as they are used; see libcurl(3).
struct CurlLibrary {
  // An error, which names the library, when it or one of the functions is missing.
  static Result<CurlLibrary> load();

  decltype(&::curl_easy_cleanup) easy_cleanup;
  decltype(&::curl_easy_getinfo) easy_getinfo;
  decltype(&::curl_easy_init) easy_init;
  decltype(&::curl_easy_perform) easy_perform;
  decltype(&::curl_easy_setopt) easy_setopt;
  decltype(&::curl_easy_strerror) easy_strerror;
  decltype(&::curl_free) free;
  decltype(&::curl_slist_append) slist_append;
  decltype(&::curl_slist_free_all) slist_free_all;
  decltype(&::curl_url) url;
  decltype(&::curl_url_cleanup) url_cleanup;
  decltype(&::curl_url_get) url_get;
  decltype(&::curl_url_set) url_set;
  decltype(&::curl_url_strerror) url_strerror;

 private:
  std::shared_ptr<void> handle_;
};

}  // namespace tessel
