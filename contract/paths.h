// Where Tessel's files are. The places are fixed: Apache's configuration, the package and
// administrators know them too.
#pragma once

#include <string>

namespace tessel {

inline constexpr const char* kTesselFolder = "/etc/tessel";
inline constexpr const char* kSettingsFile = "/etc/tessel/tessel.plist";
// Nobody but root can open it, so that nobody else can hold the lock on it.
inline constexpr const char* kTesselStateFolder = "/var/lib/tessel";

// Tessel's Apache configuration in the folder from which Apache picks configurations up, and the
// property list of Apache's environment.
inline constexpr const char* kApacheConfigurationName = "httpd_tessel.conf";
inline constexpr const char* kApacheOtherFolder = "/etc/apache2/other";
inline constexpr const char* kActiveApacheConfiguration = "/etc/apache2/other/httpd_tessel.conf";
inline constexpr const char* kApacheEnvironmentFile = "/etc/apache2/env.plist";

// The program that prints the pass phrase of the exported key.
inline constexpr const char* kPassPhraseToolFile = "/etc/tessel/getSSLPassPhrase.sh";

// The files that are exported for Apache under a certificate ID.
inline std::string exportedKeyPath(const std::string& certID) {
  return std::string(kTesselFolder) + "/" + certID + ".key.pem";
}
inline std::string exportedCertificatePath(const std::string& certID) {
  return std::string(kTesselFolder) + "/" + certID + ".cert.pem";
}

}  // namespace tessel
