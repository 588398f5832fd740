// What "tessel-host check" looks at. Each adds what it finds and changes nothing.
#pragma once

#include <optional>

#include "host/debian/tessel_host/finding.h"
#include "host/debian/tessel_host/service.h"

namespace tessel {

// Whether clients get an answer, and if not, who has the port. Returns the answer, if it came from
// the service.
std::optional<HTTPAnswer> checkAnswer(const Service& service, Findings& findings);

// The certificate that clients are shown, or, when there is no answer, the exported one: its dates,
// its names and its chain; and the exported files.
void checkCertificate(const Service& service, const std::optional<HTTPAnswer>& answer,
                      Findings& findings);

// Settings that do not mean what they look like, that Apache has not been told yet, or that let
// nobody in.
void checkSettings(const Service& service, Findings& findings);

// The records of the shares, and the folders as Apache's user finds them.
void checkShares(Findings& findings);

// Owners and modes of what is secret or nobody else's to lock, and the keychain.
void checkKeeping(Findings& findings);

}  // namespace tessel
