#pragma once

#include <string>
#include <vector>

#include "replay/replay_run.h"

namespace calder::replay {

struct ReplayCommandOutcome {
  int exitCode = kReplayBadInput;
  std::string out;  // for standard output
  std::string err;  // for standard error
};

// calder-replay's command line, the program's name left out:
//   [--decode] [--json] --package DIR TRACE...
// Exit code 0 the run made exactly the recorded calls, 4 at the first
// divergence, 5 when the traces end before the run does, 3 when a trace
// holds the recorder's refusal to load the vendor library, 2 for bad
// arguments, a trace that cannot be read or two traces of one library.
ReplayCommandOutcome RunReplayCommand(const std::vector<std::string>& args);

}  // namespace calder::replay
