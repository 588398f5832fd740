#include "platform/network/curl_library.h"

#include <dlfcn.h>

namespace tessel {

namespace {

// The version of the binary interface that the headers describe, the same since 2006.
constexpr const char* kFileName = "libcurl.so.4";

template <typename Function>
bool find(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(::dlsym(library, name));
  return function != nullptr;
}

// After dlopen(3) or dlsym(3) has failed.
Error loadingError() {
  const char* reason = ::dlerror();
  return Error{reason == nullptr ? std::string(kFileName) + " cannot be loaded" : reason};
}

}  // namespace

Result<CurlLibrary> CurlLibrary::load() {
  CurlLibrary curl{};
  // Never unloaded: other libraries that it brings along do not expect to be.
  void* library = ::dlopen(kFileName, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (library == nullptr) return loadingError();
  curl.handle_ = {library, ::dlclose};
  const bool complete =
      find(library, "curl_easy_cleanup", curl.easy_cleanup) &&
      find(library, "curl_easy_getinfo", curl.easy_getinfo) &&
      find(library, "curl_easy_init", curl.easy_init) &&
      find(library, "curl_easy_perform", curl.easy_perform) &&
      find(library, "curl_easy_setopt", curl.easy_setopt) &&
      find(library, "curl_easy_strerror", curl.easy_strerror) &&
      find(library, "curl_free", curl.free) &&
      find(library, "curl_slist_append", curl.slist_append) &&
      find(library, "curl_slist_free_all", curl.slist_free_all) &&
      find(library, "curl_url", curl.url) && find(library, "curl_url_cleanup", curl.url_cleanup) &&
      find(library, "curl_url_get", curl.url_get) && find(library, "curl_url_set", curl.url_set) &&
      find(library, "curl_url_strerror", curl.url_strerror);
  if (!complete) return loadingError();
  return curl;
}

}  // namespace tessel
