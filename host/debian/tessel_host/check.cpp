#include "host/debian/tessel_host/check.h"

#include <algorithm>

#include "host/debian/tessel_host/checks.h"
#include "platform/process/console.h"

namespace tessel {

namespace {

constexpr int kWell = 0;
constexpr int kWarning = 1;
constexpr int kNotServing = 2;

}  // namespace

int check(bool isQuiet) {
  if (!isTesselOn()) {
    printLine("not serving: Tessel is off. Run: tesselctl start");
    return kNotServing;
  }
  const Service service = readService();
  Findings findings;
  const auto answer = checkAnswer(service, findings);
  checkCertificate(service, answer, findings);
  checkSettings(service, findings);
  checkShares(findings);
  checkKeeping(findings);

  int status = kWell;
  for (const Finding& finding : findings) {
    const bool isServing = finding.severity == Finding::Severity::Warning;
    printLine((isServing ? "warning: " : "not serving: ") + finding.where + ": " + finding.what +
              ". " + finding.toDo);
    status = std::max(status, isServing ? kWarning : kNotServing);
  }
  if (findings.empty() && !isQuiet) printLine("All is well");
  return status;
}

}  // namespace tessel
