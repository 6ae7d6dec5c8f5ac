#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "trace/trace.h"
#include "sim/trace/trace_player.h"
#include "sim/simulated_laptop.h"

namespace calder::replay {

constexpr int kReplayMatched = 0;
constexpr int kReplayBadInput = 2;
constexpr int kReplayRecorderRefused = 3;
constexpr int kReplayDiverged = 4;
constexpr int kReplayCutOff = 5;

struct TraceProgress {
  std::string trace;
  size_t calls = 0;
  size_t matched = 0;
};

struct ReplayOutcome {
  int exitCode = kReplayMatched;
  int runResult = 1;  // what the update returned
  ReplayState state;
  std::vector<TraceProgress> traces;
  std::string problem;  // why nothing was replayed
};

// Runs `--update` (or the switch a HID trace recorded) on the simulated
// laptop with the package's firmware folders, each traced library and the
// HID host answered from its trace, the others and the BIOS by the models.
// Nothing runs for two traces of one library (kReplayBadInput) or a trace
// that holds the recorder's refusal to load the vendor library
// (kReplayRecorderRefused): `problem` says why.
ReplayOutcome ReplayUpdate(const std::vector<Trace>& traces, const std::filesystem::path& packageDir);

struct RecordedRun {
  int result = 1;
  Trace bridge;
  Trace upgrade;
  Trace hid;  // no lines when the run made no HID call
};

// `--update` (or `run`) on the simulated laptop with the package's firmware
// folders, both libraries and the HID host recorded in front of their
// models; `arrange` puts the devices in the wanted state first. Traces for
// tests and the bench.
RecordedRun RecordUpdate(const std::filesystem::path& packageDir,
                         const std::function<void(sim::SimulatedLaptop&)>& arrange = nullptr,
                         const std::string& run = "--update");

}  // namespace calder::replay
