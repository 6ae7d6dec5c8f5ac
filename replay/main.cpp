// calder-replay [--decode] [--json] --package DIR TRACE...: replays the
// update against recorded vendor-library traces, or decodes them.
#include <cstdio>
#include <string>
#include <vector>

#include "check/log_recorder.h"
#include "replay/replay_command.h"

int main(int argc, char** argv) {
  calder::check::SilenceProgramLog();
  const calder::replay::ReplayCommandOutcome outcome =
      calder::replay::RunReplayCommand(std::vector<std::string>(argv + 1, argv + argc));
  std::fputs(outcome.out.c_str(), stdout);
  std::fputs(outcome.err.c_str(), stderr);
  return outcome.exitCode;
}
