#include "driver/run_mode.h"

#include <cstring>

namespace calder {

CommandLine ReadCommandLine(int argc, char** argv) {
  CommandLine line;
  line.argc = argc;
  line.argv = argv;
  if (argc < 2) return line;
  const char* first = argv[1] != nullptr ? argv[1] : "";
  if (std::strcmp(first, "--update") == 0) {
    line.mode = RunMode::kUpdate;
  } else if (std::strcmp(first, "--version") == 0) {
    line.mode = RunMode::kVersion;
  } else {
    line.mode = RunMode::kOther;
  }
  line.versionQuery = argc == 2 && line.mode == RunMode::kVersion;
  return line;
}

}  // namespace calder
