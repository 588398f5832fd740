#include "platform/network/http.h"

#include <strings.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "platform/network/curl_library.h"

namespace tessel {

namespace {

using Client = std::unique_ptr<CURL, void (*)(CURL*)>;
using URL = std::unique_ptr<CURLU, void (*)(CURLU*)>;
using Text = std::unique_ptr<char, void (*)(void*)>;

size_t discard(const char* /*bytes*/, size_t size, size_t count, void* /*context*/) {
  return size * count;
}

// One transfer with what all of them have in common.
class Transfer {
 public:
  static Result<Transfer> create() {
    // The library would write the keys of every TLS connection to the file that this names.
    (void)::unsetenv("SSLKEYLOGFILE");
    const Result<CurlLibrary> curl = CurlLibrary::load();
    if (!curl) return curl.error();
    Transfer transfer(*curl);
    if (!transfer.client_ || !transfer.url_) return Error{"cannot set up the HTTP client"};
    return transfer;
  }

  // The URL, for looking at it; one that carries credentials is refused.
  Status setURL(const std::string& url) {
    const CURLUcode malformed =
        curl_.url_set(url_.get(), CURLUPART_URL, url.c_str(), CURLU_DISALLOW_USER);
    if (malformed != CURLUE_OK) return Error{curl_.url_strerror(malformed)};
    return {};
  }
  CURLU* url() { return url_.get(); }
  const CurlLibrary& library() const { return curl_; }

  template <typename Value>
  void set(CURLoption option, Value value) {
    if (status_ == CURLE_OK) status_ = curl_.easy_setopt(client_.get(), option, value);
  }
  void setCertificateCheck(bool isWanted) {
    set(CURLOPT_SSL_VERIFYPEER, isWanted ? 1L : 0L);
    set(CURLOPT_SSL_VERIFYHOST, isWanted ? 2L : 0L);
  }

  Result<std::int64_t> perform() {
    set(CURLOPT_ERRORBUFFER, reason_->data());
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_CURLU, url_.get());
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_PROXY, "");
    set(CURLOPT_NETRC, long{CURL_NETRC_IGNORED});
    set(CURLOPT_FOLLOWLOCATION, 0L);
    set(CURLOPT_WRITEFUNCTION, discard);
    if (status_ == CURLE_OK) status_ = curl_.easy_perform(client_.get());
    if (status_ != CURLE_OK) {
      return Error{reason_->front() != '\0' ? reason_->data() : curl_.easy_strerror(status_)};
    }
    long code = 0;
    (void)curl_.easy_getinfo(client_.get(), CURLINFO_RESPONSE_CODE, &code);
    return std::int64_t{code};
  }

  // To be asked after perform().
  std::vector<std::string> certificates() const {
    curl_certinfo* shown = nullptr;
    std::vector<std::string> found;
    if (curl_.easy_getinfo(client_.get(), CURLINFO_CERTINFO, &shown) != CURLE_OK) return found;
    constexpr std::string_view kField = "Cert:";
    for (int i = 0; shown != nullptr && i < shown->num_of_certs; ++i) {
      for (const curl_slist* line = shown->certinfo[i]; line != nullptr; line = line->next) {
        const std::string_view text = line->data;
        if (text.starts_with(kField)) found.emplace_back(text.substr(kField.size()));
      }
    }
    return found;
  }

 private:
  explicit Transfer(const CurlLibrary& curl)
      : curl_(curl),
        url_(curl.url(), curl.url_cleanup),
        client_(curl.easy_init(), curl.easy_cleanup) {}

  CurlLibrary curl_;
  // The client uses these two until it is gone.
  std::unique_ptr<std::array<char, CURL_ERROR_SIZE>> reason_{
      std::make_unique<std::array<char, CURL_ERROR_SIZE>>()};
  URL url_;
  Client client_;
  CURLcode status_ = CURLE_OK;
};

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
  auto transfer = Transfer::create();
  if (!transfer) return transfer.error();
  if (const Status understood = transfer->setURL(url); !understood) return understood.error();
  transfer->setCertificateCheck(
      !isHostOf(transfer->library(), transfer->url(), anyCertificateHost));
  return transfer->perform();
}

Result<HTTPAnswer> httpAsk(const HTTPQuestion& question) {
  auto transfer = Transfer::create();
  if (!transfer) return transfer.error();
  if (const Status understood = transfer->setURL(question.url); !understood) {
    return understood.error();
  }
  transfer->setCertificateCheck(false);
  const CurlLibrary& curl = transfer->library();
  const std::unique_ptr<curl_slist, void (*)(curl_slist*)> way(
      curl.slist_append(nullptr, ("::" + question.server).c_str()), curl.slist_free_all);
  transfer->set(CURLOPT_CONNECT_TO, way.get());
  transfer->set(CURLOPT_CERTINFO, 1L);
  transfer->set(CURLOPT_TIMEOUT_MS, static_cast<long>(question.limit.count()));
  const auto status = transfer->perform();
  if (!status) return status.error();
  return HTTPAnswer{*status, transfer->certificates()};
}

}  // namespace tessel
