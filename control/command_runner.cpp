#include "control/command_runner.h"

#include "platform/base/text.h"
#include "platform/process/program.h"

namespace tessel {

std::string resultsFromCommand(const std::string& launchPath,
                               const std::vector<std::string>& args) {
  const auto output = captureProgram(launchPath, args);
  if (!output) return output.error().description;
  std::string results;
  for (const std::string& stream : {output->standardOutput, output->standardError}) {
    if (isUTF8(stream)) results += trimmed(stream);
  }
  return results;
}

}  // namespace tessel
