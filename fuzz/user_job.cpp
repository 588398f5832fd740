// Names of per-user job files.
#include "control/user_job.h"

#include "fuzz/fuzz.h"
#include "platform/base/text.h"

using namespace tessel;  // NOLINT(google-build-using-namespace)
using fuzz::require;

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string name(fuzz::text(data, size));
  const UserJob job = userJob(name);
  for (const std::string& part : {job.user, job.mapperPID, job.port}) {
    require(name.find(part) != std::string::npos && part.find('.') == std::string::npos);
  }
  require((job.user + job.mapperPID).find('-') == std::string::npos);
  (void)leadingInteger(job.mapperPID);
  // The name says no more than these parts.
  const UserJob again = userJob("a.b." + job.user + "-" + job.mapperPID + "." + job.port + ".c");
  require(again.user == job.user && again.mapperPID == job.mapperPID && again.port == job.port);
  return 0;
}
