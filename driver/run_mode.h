#pragma once

namespace calder {

// What the command line asks for; only the first argument counts.
enum class RunMode { kNoArgument, kUpdate, kVersion, kOther };

// The command line, read once, as the entry and main see it.
struct CommandLine {
  int argc = 0;
  char** argv = nullptr;
  RunMode mode = RunMode::kNoArgument;
  // Exactly one argument, "--version": main runs on the entry thread, no window.
  bool versionQuery = false;
};

CommandLine ReadCommandLine(int argc, char** argv);

}  // namespace calder
