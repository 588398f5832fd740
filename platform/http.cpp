#include "platform/http.h"

#include <curl/curl.h>
#include <strings.h>

#include <array>
#include <cstdlib>
#include <memory>

namespace tessel {

namespace {

using Client = std::unique_ptr<CURL, void (*)(CURL*)>;
using URL = std::unique_ptr<CURLU, void (*)(CURLU*)>;
using Text = std::unique_ptr<char, void (*)(void*)>;

size_t discard(const char* /*bytes*/, size_t size, size_t count, void* /*context*/) {
  return size * count;
}

// The host of a parsed URL, empty when it has none.
std::string hostOf(CURLU* url) {
  char* host = nullptr;
  (void)::curl_url_get(url, CURLUPART_HOST, &host, 0);
  const Text owned(host, ::curl_free);
  return host == nullptr ? std::string() : std::string(host);
}

}  // namespace

Result<std::int64_t> httpGet(const std::string& url, const std::string& anyCertificateHost) {
  // The library would write the keys of every TLS connection to the file that this names.
  (void)::unsetenv("SSLKEYLOGFILE");
  // The client uses these until it is gone.
  std::array<char, CURL_ERROR_SIZE> details{};
  const URL parsed(::curl_url(), ::curl_url_cleanup);
  const Client client(::curl_easy_init(), ::curl_easy_cleanup);
  if (!client || !parsed) return Error{"cannot set up the HTTP client"};

  const CURLUcode malformed =
      ::curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), CURLU_DISALLOW_USER);
  if (malformed != CURLUE_OK) return Error{::curl_url_strerror(malformed)};
  const bool anyCertificate =
      ::strcasecmp(hostOf(parsed.get()).c_str(), anyCertificateHost.c_str()) == 0;

  CURLcode status = CURLE_OK;
  const auto set = [&](CURLoption option, auto value) {
    if (status == CURLE_OK) status = ::curl_easy_setopt(client.get(), option, value);
  };
  set(CURLOPT_ERRORBUFFER, details.data());
  set(CURLOPT_NOSIGNAL, 1L);
  set(CURLOPT_CURLU, parsed.get());
  set(CURLOPT_PROTOCOLS_STR, "http,https");
  set(CURLOPT_PROXY, "");
  set(CURLOPT_NETRC, long{CURL_NETRC_IGNORED});
  set(CURLOPT_FOLLOWLOCATION, 0L);
  set(CURLOPT_SSL_VERIFYPEER, anyCertificate ? 0L : 1L);
  set(CURLOPT_SSL_VERIFYHOST, anyCertificate ? 0L : 2L);
  set(CURLOPT_WRITEFUNCTION, discard);
  if (status == CURLE_OK) status = ::curl_easy_perform(client.get());
  if (status != CURLE_OK) {
    return Error{details[0] != '\0' ? details.data() : ::curl_easy_strerror(status)};
  }

  long code = 0;
  (void)::curl_easy_getinfo(client.get(), CURLINFO_RESPONSE_CODE, &code);
  return std::int64_t{code};
}

}  // namespace tessel
