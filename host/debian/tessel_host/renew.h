// tessel-host renew: has the best identity served without cutting a connection.
#pragma once

namespace tessel {

// Exports the best identity for the server name, has Apache reload gracefully, waits until clients
// are shown the certificate with its chain, and then removes what it supersedes from the keychain
// and from what is exported. A self-signed identity with less than 30 days left, or none at all, is
// superseded by a new one. When the new one does not get served, all is as before. A run that is
// killed leaves what Apache can serve with, and the next one finishes it.
//
// It takes its turn with the runs of start and stop. Returns the exit status: 0 done or nothing to
// do, as when the service or TLS is off; 1 after a line on standard error, for instance when an
// issued certificate has expired and there is no newer one.
int renew();

}  // namespace tessel
