#include "host/debian/mod_tessel/sign_in.h"

#include <httpd.h>
// httpd.h comes first: the others need its types.
#include <apr_optional.h>
#include <apr_sha1.h>
#include <fcntl.h>
#include <grp.h>
#include <http_log.h>
#include <http_request.h>
#include <mod_auth.h>
#include <pwd.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files/file_descriptor.h"

APLOG_USE_MODULE(tessel);

namespace tessel {

namespace {

constexpr const char* kProvider = "tessel";
constexpr const char* kChecker = "/usr/sbin/pwauth";

// What a worker thread of Apache has set for itself must not reach another program.
class SpawnAttributes {
 public:
  SpawnAttributes() {
    ::posix_spawnattr_init(&attributes);
    sigset_t none;
    sigset_t all;
    ::sigemptyset(&none);
    ::sigfillset(&all);
    ::posix_spawnattr_setsigmask(&attributes, &none);
    ::posix_spawnattr_setsigdefault(&attributes, &all);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;
  SpawnAttributes(SpawnAttributes&&) = delete;
  SpawnAttributes& operator=(SpawnAttributes&&) = delete;
  ~SpawnAttributes() { ::posix_spawnattr_destroy(&attributes); }
  const posix_spawnattr_t* get() const { return &attributes; }

 private:
  posix_spawnattr_t attributes{};
};

class SpawnActions {
 public:
  explicit SpawnActions(int standardInput) {
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, standardInput, STDIN_FILENO);
  }
  SpawnActions(const SpawnActions&) = delete;
  SpawnActions& operator=(const SpawnActions&) = delete;
  SpawnActions(SpawnActions&&) = delete;
  SpawnActions& operator=(SpawnActions&&) = delete;
  ~SpawnActions() { ::posix_spawn_file_actions_destroy(&actions); }
  const posix_spawn_file_actions_t* get() const { return &actions; }

 private:
  posix_spawn_file_actions_t actions{};
};

// Hands the text to pwauth and returns its exit status; none when it cannot be run. The text fits
// the pipe's buffer, so that nobody waits for anybody.
std::optional<int> runChecker(const std::string& text) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return std::nullopt;
  FileDescriptor reading(ends[0]);
  FileDescriptor writing(ends[1]);
  const SpawnActions actions(reading.get());
  const SpawnAttributes attributes;
  std::string program = kChecker;
  const std::array<char*, 2> arguments{program.data(), nullptr};
  const std::array<char*, 1> environment{nullptr};
  pid_t process = 0;
  if (::posix_spawn(&process, kChecker, actions.get(), attributes.get(), arguments.data(),
                    environment.data()) != 0) {
    return std::nullopt;
  }
  reading.reset();
  const bool written =
      ::write(writing.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
  writing.reset();
  int status = 0;
  while (::waitpid(process, &status, 0) < 0) {
    if (errno != EINTR) return std::nullopt;
  }
  if (!written || !WIFEXITED(status)) return std::nullopt;
  return WEXITSTATUS(status);
}

// The password may be accepted without asking again for as long as AuthnCacheTimeout says.
void remember(request_rec* request, const char* user, const char* password) {
  const auto store = APR_RETRIEVE_OPTIONAL_FN(ap_authn_cache_store);
  if (store == nullptr) return;
  std::array<char, 64> hash{};  // "{SHA}" and 28 characters
  apr_sha1_base64(password, static_cast<int>(std::strlen(password)), hash.data());
  store(request, kProvider, user, nullptr, hash.data());
}

authn_status checkPassword(request_rec* request, const char* user, const char* password) {
  // pwauth(8) reads a line each, into buffers of a size that it does not tell. Its statuses 1 and 2
  // are an unknown user and a wrong password, 3 to 7 accounts that may not sign in; from 50 on it
  // cannot do its work.
  constexpr size_t kLongestText = 500;
  constexpr int kLastRefusal = 7;
  try {
    const std::string_view name = user;
    const std::string_view secret = password;
    if (name.empty() || name.size() > kLongestText || secret.size() > kLongestText ||
        name.find('\n') != std::string_view::npos || secret.find('\n') != std::string_view::npos) {
      return AUTH_DENIED;
    }
    std::string text;
    text.reserve(name.size() + secret.size() + 2);
    text.append(name).append("\n").append(secret).append("\n");
    const auto status = runChecker(text);
    ::explicit_bzero(text.data(), text.size());
    if (status == 0) {
      remember(request, user, password);
      return AUTH_GRANTED;
    }
    if (status && *status <= kLastRefusal) return AUTH_DENIED;
    ap_log_rerror(APLOG_MARK, APLOG_ERR, 0, request, "%s fails with status %d", kChecker,
                  status.value_or(-1));
  } catch (...) {
    ap_log_rerror(APLOG_MARK, APLOG_ERR, 0, request, "out of memory");
  }
  return AUTH_GENERAL_ERROR;
}

// Calls getpwnam_r or getgrnam_r with as much room as the entry takes.
template <typename Entry>
Entry* lookUp(int (*function)(const char*, Entry*, char*, size_t, Entry**), const char* name,
              Entry* entry, std::vector<char>* room) {
  constexpr size_t kSomeRoom = 1024;
  for (room->resize(kSomeRoom);; room->resize(2 * room->size())) {
    Entry* found = nullptr;
    const int failure = function(name, entry, room->data(), room->size(), &found);
    if (failure == 0) return found;
    if (failure != ERANGE && failure != EINTR) return nullptr;
  }
}

bool isMember(const char* user, const char* group) {
  passwd account{};
  struct group members {};
  std::vector<char> accountRoom;
  std::vector<char> membersRoom;
  if (lookUp(::getpwnam_r, user, &account, &accountRoom) == nullptr) return false;
  if (lookUp(::getgrnam_r, group, &members, &membersRoom) == nullptr) return false;
  if (account.pw_gid == members.gr_gid) return true;
  for (char** member = members.gr_mem; *member != nullptr; ++member) {
    if (std::strcmp(*member, user) == 0) return true;
  }
  return false;
}

authz_status checkGroup(request_rec* request, const char* groups, const void* /*parsed*/) {
  if (request->user == nullptr) return AUTHZ_DENIED_NO_USER;
  try {
    for (const char* group = ap_getword_conf(request->pool, &groups); *group != '\0';
         group = ap_getword_conf(request->pool, &groups)) {
      if (isMember(request->user, group)) return AUTHZ_GRANTED;
    }
  } catch (...) {
    ap_log_rerror(APLOG_MARK, APLOG_ERR, 0, request, "out of memory");
    return AUTHZ_GENERAL_ERROR;
  }
  return AUTHZ_DENIED;
}

constexpr authn_provider kPasswords{checkPassword, nullptr};
constexpr authz_provider kGroups{checkGroup, nullptr};

}  // namespace

void registerSignIn(apr_pool_t* pool) {
  ap_register_auth_provider(pool, AUTHN_PROVIDER_GROUP, kProvider, AUTHN_PROVIDER_VERSION,
                            &kPasswords, AP_AUTH_INTERNAL_PER_CONF);
  ap_register_auth_provider(pool, AUTHZ_PROVIDER_GROUP, "tessel-group", AUTHZ_PROVIDER_VERSION,
                            &kGroups, AP_AUTH_INTERNAL_PER_CONF);
}

}  // namespace tessel
