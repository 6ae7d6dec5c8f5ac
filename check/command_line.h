#pragma once

#include <string>
#include <vector>

namespace calder::check {

constexpr int kExitShip = 0;
constexpr int kExitDoNotShip = 1;
constexpr int kExitCouldNotCheck = 2;

struct CommandOutcome {
  int exitCode = kExitCouldNotCheck;
  std::string out;  // for standard output
  std::string err;  // for standard error
};

// calder-check's command line, the program's name left out: --help and
// --version answer on standard output, a mistake gets the usage on
// standard error, and a folder gets the report.
CommandOutcome RunCommand(const std::vector<std::string>& args);

}  // namespace calder::check
