#include "platform/network/http.h"

#include <strings.h>

#include <array>
#include <cstdlib>
#include <memory>

#include "platform/network/curl_library.h"

namespace tessel {

namespace {

using Client = std::unique_ptr<CURL, void (*)(CURL*)>;
using URL = std::unique_ptr<CURLU, void (*)(CURLU*)>;
using Text = std::unique_ptr<char, void (*)(void*)>;

size_t discard(const char* /*bytes*/, size_t size, size_t count, void* /*context*/) {
  return size * count;
}

// The host of a parsed URL, empty when it has none. The library has rewritten addresses: 127.2 is
// 127.0.0.2.
std::string hostOf(const CurlLibrary& curl, CURLU* url) {
  char* host = nullptr;
  (void)curl.url_get(url, CURLUPART_HOST, &host, 0);
  const Text owned(host, curl.free);
  return host == nullptr ? std::string() : std::string(host);
}

// Whether this name of a host becomes the URL's host when it stands in a URL itself.
bool isHostOf(const CurlLibrary& curl, CURLU* url, const std::string& name) {
  const URL other(curl.url(), curl.url_cleanup);
  if (!other || curl.url_set(other.get(), CURLUPART_URL, ("https://" + name + "/").c_str(),
                             CURLU_DISALLOW_USER) != CURLUE_OK) {
    return false;
  }
  const std::string host = hostOf(curl, url);
  return !host.empty() && ::strcasecmp(host.c_str(), hostOf(curl, other.get()).c_str()) == 0;
}

}  // namespace

Result<std::int64_t> httpGet(const std::string& url, const std::string& anyCertificateHost) {
  // The library would write the keys of every TLS connection to the file that this names.
  (void)::unsetenv("SSLKEYLOGFILE");
  const Result<CurlLibrary> curl = CurlLibrary::load();
  if (!curl) return curl.error();
  // The client uses these until it is gone.
  std::array<char, CURL_ERROR_SIZE> details{};
  const URL parsed(curl->url(), curl->url_cleanup);
  const Client client(curl->easy_init(), curl->easy_cleanup);
  if (!client || !parsed) return Error{"cannot set up the HTTP client"};

  const CURLUcode malformed =
      curl->url_set(parsed.get(), CURLUPART_URL, url.c_str(), CURLU_DISALLOW_USER);
  if (malformed != CURLUE_OK) return Error{curl->url_strerror(malformed)};
  const bool anyCertificate = isHostOf(*curl, parsed.get(), anyCertificateHost);

  CURLcode status = CURLE_OK;
  const auto set = [&](CURLoption option, auto value) {
    if (status == CURLE_OK) status = curl->easy_setopt(client.get(), option, value);
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
  if (status == CURLE_OK) status = curl->easy_perform(client.get());
  if (status != CURLE_OK) {
    return Error{details[0] != '\0' ? details.data() : curl->easy_strerror(status)};
  }

  long code = 0;
  (void)curl->easy_getinfo(client.get(), CURLINFO_RESPONSE_CODE, &code);
  return std::int64_t{code};
}

}  // namespace tessel
