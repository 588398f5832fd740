// The Apache module that decides who may sign in. Where "TesselSignIn on" stands in a <Location>,
// the machine's accounts sign in with their passwords (Basic), checked by pwauth; with
// "TesselAccessGroup NAME" only the group's members. "Require tessel-group NAME..." asks for a
// group by the same look-up, whoever has checked the password.
//
// Nobody's password is a way to find out more than that a sign-in was refused: an unknown user, one
// outside the group and a wrong password are answered alike and after the same time.
#include <httpd.h>
// httpd.h comes first: the others need its types.
#include <apr_strings.h>
#include <arpa/inet.h>
#include <http_config.h>
#include <http_core.h>
#include <http_log.h>
#include <http_protocol.h>
#include <http_request.h>
#include <mod_auth.h>
#include <mpm_common.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "host/debian/apache_command.h"
#include "host/debian/mod_tessel_sign_in/account_files.h"
#include "host/debian/mod_tessel_sign_in/gate.h"
#include "host/debian/mod_tessel_sign_in/memberships.h"
#include "host/debian/mod_tessel_sign_in/open_accounts.h"
#include "platform/process/program.h"

extern "C" {
// What Apache looks for in the file, and all that it shows.
extern module AP_MODULE_DECLARE_DATA tessel_sign_in_module __attribute__((visibility("default")));
}
APLOG_USE_MODULE(tessel_sign_in);

namespace tessel {

namespace {

constexpr const char* kChecker = "/usr/sbin/pwauth";
constexpr int kSecondsWhenBusy = 2;

// Where accounts may have an empty password.
constexpr std::array kPasswordFiles{"/etc/passwd", kShadowFile};
using PasswordStamps = std::array<FileStamp, kPasswordFiles.size()>;

struct Location {
  int isOn;           // -1 where nobody has said
  const char* group;  // null for every account
};

// Of each virtual host; the objects are the same for all.
struct Server {
  void* gateMemory;
  Gate* gate;  // of a child process; null before there is one
  AccountFiles* files;
  Memberships* memberships;
  PasswordStamps* passwords;  // as the gate knows them; the first process's own
};

template <typename T>
T* configOf(ap_conf_vector_t* vector) {
  return static_cast<T*>(ap_get_module_config(vector, &tessel_sign_in_module));
}

// The part of an address that one customer has to themselves (RFC 6177): all of an IPv4 address,
// the first 64 bits of an IPv6 one. Nothing for this machine, from where a proxy speaks for
// everybody.
std::string addressKey(const char* text) {
  constexpr size_t kPrefix = 8;
  constexpr size_t kMapped = 12;
  constexpr unsigned char kLoopback = 127;
  in6_addr address{};
  std::string bytes(sizeof address.s6_addr, '\0');
  if (::inet_pton(AF_INET6, text, &address) == 1) {
    std::memcpy(bytes.data(), address.s6_addr, bytes.size());
    if (IN6_IS_ADDR_LOOPBACK(&address)) return "";
    if (!IN6_IS_ADDR_V4MAPPED(&address)) return bytes.substr(0, kPrefix);
    bytes.erase(0, kMapped);
  } else {
    bytes.resize(sizeof(in_addr));
    if (::inet_pton(AF_INET, text, bytes.data()) != 1) return "";
  }
  return static_cast<unsigned char>(bytes.front()) == kLoopback ? "" : bytes;
}

// pwauth(8) reads a line each, into buffers of a size that it does not tell.
bool isCheckable(std::string_view text) {
  constexpr size_t kLongestText = 500;
  return !text.empty() && text.size() <= kLongestText && text.find('\n') == std::string_view::npos;
}

// One sign-in on its way through the gate.
class SignIn {
 public:
  SignIn(request_rec* request, const Server& server, std::string user, std::string password)
      : request_(request),
        gate_(*server.gate),
        files_(*server.files),
        user_(std::move(user)),
        password_(std::move(password)) {}
  SignIn(const SignIn&) = delete;
  SignIn& operator=(const SignIn&) = delete;
  SignIn(SignIn&&) = delete;
  SignIn& operator=(SignIn&&) = delete;
  ~SignIn() { ::explicit_bzero(password_.data(), password_.size()); }

  // OK, or the status to answer with. Who is not eligible is refused, whatever the password. Tells
  // in `isAtOnce` whether the answer was known.
  int decide(bool isEligible, bool& isAtOnce) {
    const auto tag = makeTag();
    if (!tag) return fail(tag.error().description.c_str());
    isAtOnce = isEligible && gate_.isGranted(*tag, Gate::now());
    if (isAtOnce) return OK;

    countAs(addressKey(request_->useragent_ip));
    const auto isRefused = gate_.isRefused(client_.user);
    if (!isRefused) return fail("it is not known which accounts have no password");
    if (*isRefused) isEligible = false;
    const Entry entry = gate_.enter(*tag, client_, !isEligible, Gate::now());
    switch (entry.kind) {
      case Entry::Kind::Granted:
        return OK;
      case Entry::Kind::Slowed:
        return later(HTTP_TOO_MANY_REQUESTS, entry.retryAfter);
      case Entry::Kind::Busy:
        return later(HTTP_SERVICE_UNAVAILABLE, kSecondsWhenBusy);
      case Entry::Kind::Wait:
        return answer(waitFor(entry), *tag);
      case Entry::Kind::Check:
        break;
    }
    CheckResult result = CheckResult::Unknown;
    try {
      result = check(isEligible);
    } catch (...) {
      gate_.finish(entry, *tag, client_, CheckResult::Unknown, Gate::now());
      throw;
    }
    gate_.finish(entry, *tag, client_, result, Gate::now());
    return answer(result, *tag);
  }

  int refuse() {
    ap_log_rerror(APLOG_MARK, APLOG_ERR, 0, request_, "sign-in refused for \"%s\"", user_.c_str());
    ap_note_auth_failure(request_);
    return HTTP_UNAUTHORIZED;
  }

  // For what cannot be told. It says nothing of the password and counts as no guess.
  int fail(const char* reason) {
    ap_log_rerror(APLOG_MARK, APLOG_ERR, 0, request_, "sign-in not checked: %s", reason);
    return later(HTTP_SERVICE_UNAVAILABLE, kSecondsWhenBusy);
  }

 private:
  Result<SignInTag> makeTag() const {
    // A change of any password makes all be asked for anew.
    const FileStamp stamp = files_.stamps().shadow;
    std::string text;
    text.reserve(sizeof stamp + user_.size() + 1 + password_.size());
    text.append(reinterpret_cast<const char*>(stamp.data()), sizeof stamp);
    text.append(user_).append("\n").append(password_);
    auto tag = gate_.tagOf(text);
    ::explicit_bzero(text.data(), text.size());
    return tag;
  }

  void countAs(const std::string& address) {
    client_.user = gate_.keyOf("user\n" + user_);
    client_.both = gate_.keyOf("both\n" + user_ + "\n" + address);
    if (!address.empty()) client_.address = gate_.keyOf("address\n" + address);
  }

  int later(int status, int seconds) {
    apr_table_setn(request_->err_headers_out, "Retry-After", apr_itoa(request_->pool, seconds));
    return status;
  }

  int answer(CheckResult result, const SignInTag& tag) {
    if (result == CheckResult::Right) return OK;
    if (result == CheckResult::Wrong) return refuse();
    // What was right less than a minute ago need not fail with pwauth.
    if (gate_.isRemembered(tag, Gate::now())) return OK;
    return later(HTTP_SERVICE_UNAVAILABLE, kSecondsWhenBusy);
  }

  CheckResult waitFor(const Entry& entry) {
    constexpr apr_interval_time_t kPause = 10'000;  // microseconds
    CheckResult result = CheckResult::Unknown;
    while (!gate_.outcome(entry, Gate::now(), &result)) apr_sleep(kPause);
    return result;
  }

  // Returns late when the password is wrong.
  CheckResult check(bool isEligible) {
    const std::int64_t begun = Gate::now();
    const CheckResult result = isEligible ? ask() : CheckResult::Wrong;
    if (result == CheckResult::Wrong) {
      const std::int64_t now = Gate::now();
      const std::int64_t late = gate_.refuse(client_, isEligible ? now - begun : 0, now);
      if (begun + late > now) apr_sleep((begun + late - now) * 1000);
    }
    return result;
  }

  CheckResult ask() {
    // Its statuses 1 and 2 are an unknown user and a wrong password, 3 to 7 accounts that may not
    // sign in; from 50 on it cannot do its work.
    constexpr int kLastRefusal = 7;
    std::string text;
    text.reserve(user_.size() + password_.size() + 2);
    text.append(user_).append("\n").append(password_).append("\n");
    const auto end = runBounded(
        kChecker, {}, {std::chrono::milliseconds(Gate::kCheckLimit), Surroundings::Apart, text});
    ::explicit_bzero(text.data(), text.size());
    if (!end) {
      ap_log_rerror(APLOG_MARK, APLOG_ERR, 0, request_, "%s", end.error().description.c_str());
      return CheckResult::Unknown;
    }
    if (end->status == 0) return CheckResult::Right;
    if (end->status <= kLastRefusal) return CheckResult::Wrong;
    ap_log_rerror(APLOG_MARK, APLOG_ERR, 0, request_, "%s fails with status %d: %s", kChecker,
                  end->status, end->output.standardError.c_str());
    return CheckResult::Unknown;
  }

  request_rec* request_;
  Gate& gate_;
  AccountFiles& files_;
  std::string user_;
  std::string password_;
  Client client_;
};

int authenticate(request_rec* request) {
  const auto* location = configOf<Location>(request->per_dir_config);
  const char* type = ap_auth_type(request);
  if (location->isOn != 1 || type == nullptr || ap_cstr_casecmp(type, "Basic") != 0) {
    return DECLINED;
  }
  const char* user = nullptr;
  const char* password = nullptr;
  if (ap_get_basic_auth_components(request, &user, &password) != APR_SUCCESS) {
    ap_note_auth_failure(request);
    return HTTP_UNAUTHORIZED;
  }
  request->user = const_cast<char*>(user);
  request->ap_auth_type = const_cast<char*>("Basic");
  const auto* server = configOf<Server>(request->server->module_config);
  if (server->gate == nullptr) return HTTP_INTERNAL_SERVER_ERROR;
  SignIn signIn(request, *server, user, password);
  if (!isCheckable(user) || !isCheckable(password)) return signIn.refuse();
  const Result<bool> isMember =
      location->group == nullptr ? true : server->memberships->isMember(user, location->group);
  if (!isMember) return signIn.fail(isMember.error().description.c_str());
  bool isAtOnce = false;
  const int status = signIn.decide(*isMember, isAtOnce);
  // Authorization, which follows at once, need not look it up again.
  if (isAtOnce && location->group != nullptr) {
    ap_set_module_config(request->request_config, &tessel_sign_in_module,
                         const_cast<char*>(location->group));
  }
  return status;
}

// The boundary to Apache, which is C: no exception may cross it.
int authenticateGuarded(request_rec* request) {
  try {
    return authenticate(request);
  } catch (...) {
    ap_log_rerror(APLOG_MARK, APLOG_ERR, 0, request, "out of memory");
    return HTTP_INTERNAL_SERVER_ERROR;
  }
}

authz_status checkGroup(request_rec* request, const char* groups, const void* /*parsed*/) {
  if (request->user == nullptr) return AUTHZ_DENIED_NO_USER;
  const auto* server = configOf<Server>(request->server->module_config);
  const auto* known = configOf<const char>(request->request_config);
  authz_status result = AUTHZ_DENIED;
  try {
    for (const char* group = ap_getword_conf(request->pool, &groups); *group != '\0';
         group = ap_getword_conf(request->pool, &groups)) {
      const bool isKnown = known != nullptr && std::strcmp(known, group) == 0;
      const Result<bool> isMember =
          isKnown ? true : server->memberships->isMember(request->user, group);
      if (isMember && *isMember) return AUTHZ_GRANTED;
      if (isMember) continue;
      ap_log_rerror(APLOG_MARK, APLOG_ERR, 0, request, "%s", isMember.error().description.c_str());
      result = AUTHZ_GENERAL_ERROR;
    }
  } catch (...) {
    ap_log_rerror(APLOG_MARK, APLOG_ERR, 0, request, "out of memory");
    return AUTHZ_GENERAL_ERROR;
  }
  return result;
}

constexpr authz_provider kGroups{checkGroup, nullptr};

template <typename Object>
apr_status_t deleteObject(void* object) {
  delete static_cast<Object*>(object);
  return APR_SUCCESS;
}

// One that goes with the pool; null when there is no memory.
template <typename Object, typename... Arguments>
Object* makeObject(apr_pool_t* pool, Arguments&&... arguments) {
  try {
    auto* object = new Object(std::forward<Arguments>(arguments)...);
    apr_pool_cleanup_register(pool, object, deleteObject<Object>, apr_pool_cleanup_null);
    return object;
  } catch (...) {
    return nullptr;
  }
}

// The keys of the accounts without a password.
Result<std::vector<std::uint64_t>> openUsers(const Gate& gate) try {
  std::vector<std::uint64_t> users;
  for (const char* file : kPasswordFiles) {
    const auto names = openAccounts(file);
    if (!names) return names.error();
    for (const std::string& name : *names) {
      users.push_back(gate.keyOf("user\n" + name));
      if (users.back() == 0) return Error{"no digest can be made"};
    }
  }
  return users;
} catch (const std::bad_alloc&) {
  return Error{"out of memory"};
}

// Apache's first process, which is root's, looks every ten seconds whether accounts have changed.
// Until it has read what they have changed to, any account may be one without a password.
void lookForOpenAccounts(server_rec* server) {
  auto* own = configOf<Server>(server->module_config);
  PasswordStamps now;
  std::transform(kPasswordFiles.begin(), kPasswordFiles.end(), now.begin(), fileStamp);
  const bool areThere = std::find(now.begin(), now.end(), FileStamp{}) == now.end();
  if (areThere && now == *own->passwords) return;
  Gate gate(own->gateMemory);
  const auto users = openUsers(gate);
  if (!users) {
    *own->passwords = {};
    gate.forgetRefused();
    ap_log_error(APLOG_MARK, APLOG_ERR, 0, server, "nobody may sign in: %s",
                 users.error().description.c_str());
    return;
  }
  *own->passwords = now;
  if (!gate.setRefused(*users)) {
    ap_log_error(APLOG_MARK, APLOG_ERR, 0, server,
                 "nobody may sign in: more than %" APR_SIZE_T_FMT " accounts have no password",
                 Gate::kMostRefused);
  }
}

int watchAccounts(apr_pool_t* /*configuration*/, server_rec* server) {
  try {
    lookForOpenAccounts(server);
  } catch (...) {
    ap_log_error(APLOG_MARK, APLOG_ERR, 0, server, "out of memory");
  }
  return OK;
}

// The memory is the same for as long as Apache runs: a restart forgets no failures, and the
// processes of the last configuration count with those of the new one.
int prepareServers(apr_pool_t* configuration, apr_pool_t* /*log*/, apr_pool_t* /*temporary*/,
                   server_rec* first) {
  apr_pool_t* lasting = first->process->pool;
  const char* name =
      apr_psprintf(lasting, "tessel-sign-in-1-%" APR_SIZE_T_FMT, Gate::sizeOfMemory());
  void* memory = nullptr;
  apr_pool_userdata_get(&memory, name, lasting);
  if (memory == nullptr) {
    memory = Gate::makeMemory();
    if (memory != nullptr) apr_pool_userdata_setn(memory, name, nullptr, lasting);
  }
  auto* files = makeObject<AccountFiles>(configuration);
  auto* memberships = files == nullptr ? nullptr : makeObject<Memberships>(configuration, *files);
  if (memory == nullptr || memberships == nullptr) {
    ap_log_error(APLOG_MARK, APLOG_EMERG, 0, first, "no memory for sign-ins");
    return HTTP_INTERNAL_SERVER_ERROR;
  }
  auto* passwords =
      static_cast<PasswordStamps*>(apr_pcalloc(configuration, sizeof(PasswordStamps)));
  for (server_rec* server = first; server != nullptr; server = server->next) {
    *configOf<Server>(server->module_config) = {memory, nullptr, files, memberships, passwords};
  }
  return watchAccounts(configuration, first);
}

// Not with the configuration: that is cleared at a process's exit, when the cryptographic library,
// which has prepared a digest in it, has gone already.
void openGate(apr_pool_t* child, server_rec* first) {
  auto* gate = makeObject<Gate>(child, configOf<Server>(first->module_config)->gateMemory);
  if (gate == nullptr) ap_log_error(APLOG_MARK, APLOG_EMERG, 0, first, "no memory for sign-ins");
  for (server_rec* server = first; server != nullptr; server = server->next) {
    configOf<Server>(server->module_config)->gate = gate;
  }
}

void registerHooks(apr_pool_t* pool) {
  ap_hook_child_init(openGate, nullptr, nullptr, APR_HOOK_MIDDLE);
  ap_hook_post_config(prepareServers, nullptr, nullptr, APR_HOOK_MIDDLE);
  ap_hook_monitor(watchAccounts, nullptr, nullptr, APR_HOOK_MIDDLE);
  ap_hook_check_authn(authenticateGuarded, nullptr, nullptr, APR_HOOK_FIRST,
                      AP_AUTH_INTERNAL_PER_CONF);
  ap_register_auth_provider(pool, AUTHZ_PROVIDER_GROUP, "tessel-group", AUTHZ_PROVIDER_VERSION,
                            &kGroups, AP_AUTH_INTERNAL_PER_CONF);
}

void* createLocation(apr_pool_t* pool, char* /*path*/) {
  auto* location = static_cast<Location*>(apr_pcalloc(pool, sizeof(Location)));
  location->isOn = -1;
  return location;
}

void* mergeLocations(apr_pool_t* pool, void* outer, void* inner) {
  auto* merged = static_cast<Location*>(apr_pmemdup(pool, inner, sizeof(Location)));
  const auto* above = static_cast<const Location*>(outer);
  if (merged->isOn < 0) merged->isOn = above->isOn;
  if (merged->group == nullptr) merged->group = above->group;
  return merged;
}

void* createServer(apr_pool_t* pool, server_rec* /*server*/) {
  return apr_pcalloc(pool, sizeof(Server));
}

const char* setOn(cmd_parms* /*command*/, void* location, int on) {
  static_cast<Location*>(location)->isOn = on;
  return nullptr;
}

const char* setGroup(cmd_parms* /*command*/, void* location, const char* group) {
  static_cast<Location*>(location)->group = group;
  return nullptr;
}

// NOLINTNEXTLINE(cert-err58-cpp,modernize-avoid-c-arrays): as Apache's macros want it
const command_rec kDirectives[] = {
    AP_INIT_FLAG("TesselSignIn", asCommand(setOn), nullptr, ACCESS_CONF,
                 "on: the machine's accounts sign in with their passwords"),
    AP_INIT_TAKE1("TesselAccessGroup", asCommand(setGroup), nullptr, ACCESS_CONF,
                  "the group whose members alone may sign in"),
    {}};

}  // namespace

}  // namespace tessel

extern "C" {
module AP_MODULE_DECLARE_DATA tessel_sign_in_module = {STANDARD20_MODULE_STUFF,
                                                       tessel::createLocation,
                                                       tessel::mergeLocations,
                                                       tessel::createServer,
                                                       nullptr,
                                                       tessel::kDirectives,
                                                       tessel::registerHooks,
                                                       0};
}
