// The directive "TesselIdentity CERTIFICATE KEY PASS-PHRASE-PROGRAM": what mod_ssl would end Apache
// for, on every restart, is found out before it has the chance.
#pragma once

#include <httpd.h>
// httpd.h comes first: the others need its types.
#include <http_config.h>

namespace tessel {

// To be called while the configuration is read (EXEC_ON_READ). Returns what is wrong when Apache
// starts or only tests its configuration. While it restarts, what is wrong is logged, and the
// define TESSEL_SERVES is taken back.
const char* checkIdentity(cmd_parms* command, void* section, const char* certificate,
                          const char* key, const char* passPhraseProgram);

}  // namespace tessel
