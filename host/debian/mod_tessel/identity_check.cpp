#include "host/debian/mod_tessel/identity_check.h"

#include <apr_strings.h>
#include <http_core.h>
#include <http_log.h>
#include <http_main.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>

#include "host/debian/mod_tessel/identity_lock.h"
#include "host/debian/mod_tessel/module.h"
#include "platform/files/file_manager.h"
#include "platform/keychain/served_identity.h"
#include "platform/process/program.h"

namespace tessel {

namespace {

constexpr const char* kDefine = "TESSEL_SERVES";
constexpr size_t kLargestFile = 1'000'000;
constexpr std::chrono::seconds kPatience{10};

Status identityFits(const char* certificate, const char* key, const char* passPhraseProgram) {
  const FileManager files;
  const auto certificatePEM = files.readFile(certificate, kLargestFile);
  if (!certificatePEM) return certificatePEM.error();
  const auto keyPEM = files.readFile(key, kLargestFile);
  if (!keyPEM) return keyPEM.error();
  // A key that was not exported needs no pass phrase.
  if (!files.fileExistsAtPath(passPhraseProgram)) {
    return keyFitsCertificate(*certificatePEM, *keyPEM, "");
  }
  auto asked = runBounded(passPhraseProgram, {}, {kPatience, Surroundings::Apart, ""});
  if (!asked) return asked.error();
  std::string& answer = asked->output.standardOutput;
  const size_t end = std::min(answer.find_last_not_of("\r\n") + 1, answer.size());
  Status fits =
      keyFitsCertificate(*certificatePEM, *keyPEM, std::string_view(answer).substr(0, end));
  ::explicit_bzero(answer.data(), answer.size());
  return fits;
}

// As "UnDefine" does.
void takeBack(const char* define) {
  auto** defines = reinterpret_cast<char**>(ap_server_config_defines->elts);
  for (int i = 0; i < ap_server_config_defines->nelts; ++i) {
    if (std::strcmp(defines[i], define) != 0) continue;
    defines[i] = *static_cast<char**>(apr_array_pop(ap_server_config_defines));
    return;
  }
}

bool isRestarting() {
  // The configuration is read as number 0 to see whether it can be, as 1 to start, then to restart.
  return ap_state_query(AP_SQ_RUN_MODE) != AP_SQ_RM_CONFIG_TEST &&
         ap_state_query(AP_SQ_CONFIG_GEN) > 1;
}

}  // namespace

const char* checkIdentity(cmd_parms* command, void* /*section*/, const char* certificate,
                          const char* key, const char* passPhraseProgram) {
  try {
    // Directives like this one are carried out before the hook that holds it otherwise.
    if (!holdIdentity(command->temp_pool)) return "out of memory";
    const Status fits = identityFits(certificate, key, passPhraseProgram);
    if (fits) return nullptr;
    const char* reason = apr_pstrcat(command->pool, "Tessel's identity cannot be served: ",
                                     fits.error().description.c_str(), nullptr);
    if (!isRestarting()) return reason;
    ap_log_error(APLOG_MARK, APLOG_CRIT, 0, command->server, "%s", reason);
    takeBack(kDefine);
    return nullptr;
  } catch (...) {
    return "out of memory";
  }
}

}  // namespace tessel
