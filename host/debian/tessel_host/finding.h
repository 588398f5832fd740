// What "tessel-host check" finds.
#pragma once

#include <string>
#include <vector>

namespace tessel {

struct Finding {
  enum class Severity { Warning, NotServing };

  Severity severity = Severity::Warning;
  std::string where;  // a file, a share, a port: what it is about
  std::string what;   // one sentence without a full stop
  std::string toDo;   // the same for the administrator, with the command if there is one
};

using Findings = std::vector<Finding>;

inline void warn(Findings& findings, std::string where, std::string what, std::string toDo) {
  findings.push_back(
      {Finding::Severity::Warning, std::move(where), std::move(what), std::move(toDo)});
}

inline void notServing(Findings& findings, std::string where, std::string what, std::string toDo) {
  findings.push_back(
      {Finding::Severity::NotServing, std::move(where), std::move(what), std::move(toDo)});
}

}  // namespace tessel
