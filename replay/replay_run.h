#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "sim/trace/trace.h"
#include "sim/trace/trace_player.h"
#include "sim/simulated_laptop.h"

namespace calder::replay {

constexpr int kReplayMatched = 0;
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
};

// Runs `--update` (or the switch a HID trace recorded) on the simulated
// laptop with the package's firmware folders, each traced library and the
// HID host answered from its trace (at most one each), the others and the
// BIOS by the models.
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
