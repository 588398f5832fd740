#include "control/tessel_ctl.h"
#include "platform/console.h"
#include "platform/process.h"

namespace tessel {

void TesselCtl::restartHTTPDGracefully() const {
  const auto status =
      runProgram("/bin/launchctl", {"kill", "USR1", "system/org.apache.httpd"}, Streams::Discarded);
  // Printed when the restart fails, not when it works: the inversion is part of the interface.
  if (!status || *status != 0) printLine("Gracefully restarted httpd");
}

}  // namespace tessel
