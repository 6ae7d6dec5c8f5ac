// calder-check [--json] [--log] PACKAGE_DIR: checks a release package before
// it ships. Exit code 0 ready to ship, 1 do not ship, 2 could not check.
#include <cstdio>
#include <string>
#include <vector>

#include "check/command_line.h"
#include "check/log_recorder.h"

int main(int argc, char** argv) {
  calder::check::SilenceProgramLog();
  const calder::check::CommandOutcome outcome =
      calder::check::RunCommand(std::vector<std::string>(argv + 1, argv + argc));
  std::fputs(outcome.out.c_str(), stdout);
  std::fputs(outcome.err.c_str(), stderr);
  return outcome.exitCode;
}
