// The commands that change something, each on a host in a certain state, and the means to run one
// of them with a fault in it and to look at what it leaves.
#pragma once

#include <iosfwd>
#include <set>
#include <string>
#include <vector>

#include "tests/faults/trace.h"
#include "tests/share_records.h"

struct Scenario {
  const char* name;
  std::string prepare;  // a script that lays out the state before
  std::string command;
  std::string inverse;  // a script that undoes the command, and fails if it has not been undone
  // What records and keychain may show between the state before and the one after, as a regular
  // expression for FaultHost::State::shown; and what running the command again does not finish.
  std::string between = "none";
  std::string unfinished = "none";
};

std::ostream& operator<<(std::ostream& out, const Scenario& scenario);

const std::vector<Scenario>& scenarios();

class FaultHost : public ShareHost {
 public:
  // Everything that commands may change.
  struct State {
    // "PATH MODE CONTENT" for each file, folder and link. What is random is left out: of digests,
    // keys and certificates only that they are there and whole, and the keychain's content.
    std::set<std::string> items;
    // The rows that `tesselctl shares` and `tessel-keychain list` print, without identifiers.
    std::string shown;
  };

  explicit FaultHost(const Scenario& tried);

  // Runs the command, behind a prefix, on the state before, then a script that may call
  // `keep FOLDER`, which copies the state there. Returns the command's exit status and then the
  // numbers that the script printed.
  std::vector<int> runWith(const std::string& prefix, const std::string& script) const;
  // The state in such a folder. Fails the test for a secret that others can read.
  State state(const std::string& folder) const;

  // Fails the test unless each item is as in one of the two states, nothing is missing that both
  // have in some form, and what is shown is as in one of them or as between them. `any` says which
  // items may be anything.
  void expectEither(const State& found, const State& one, const State& other,
                    const std::string& any) const;

  const Scenario& scenario;
  std::vector<Call> calls;  // of a run that nothing disturbs
  State before;
  State after;
  State again;  // after a second run
  int statusAgain = 0;
};

// Whether the whole text matches a regular expression.
bool matches(const std::string& text, const std::string& expression);
