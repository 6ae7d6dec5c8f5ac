#include "replay/replay_run.h"

#include <array>
#include <memory>

#include "base/firmware_discovery.h"
#include "check/console_silencer.h"
#include "check/force_image_plan.h"
#include "check/log_recorder.h"
#include "check/package_machine.h"
#include "hid/recording_hid_host.h"
#include "replay/trace_recorder.h"
#include "sim/trace/traced_libraries.h"
#include "sim/protocol_violations.h"
#include "sim/simulated_laptop.h"
#include "trace/trace_reader.h"
#include "trace/trace_writer.h"

namespace calder::replay {

namespace {

class TraceText : public TraceSink {
 public:
  void Append(const std::string& line) override { text += line; }
  std::string text;
};

// The laptop with the package's firmware folders; a sensor that behaves runs
// what the force file's name says, as calder-check predicts.
void Arrange(sim::SimulatedLaptop& laptop, check::StagedPackage& package) {
  laptop.files = &package.machine();
  laptop.process = &package.machine();
  ScopedEnvironment scope(laptop.Wiring());
  std::array<uint8_t, 4> version{};
  const std::string force = FindFirstFileInFolder(GetModuleDir() + kForceFirmwareFolder);
  if (check::VersionBytesOf(GetFileStem(force), &version)) laptop.sensor.version = version;
}

int RunQuietly(sim::SimulatedLaptop& laptop, const std::string& run) {
  check::LogRecorder quiet;
  check::ConsoleSilencer silencer;
  return laptop.RunMain({run});
}

// Why the traces cannot be replayed together; empty when they can.
std::string Unplayable(const std::vector<Trace>& traces, int* exitCode) {
  for (size_t i = 0; i < traces.size(); ++i) {
    if (const TraceLine* refusal = traces[i].Refusal()) {
      *exitCode = kReplayRecorderRefused;
      return traces[i].name + ": the recorder refused to load the vendor library (" + *refusal->refused +
             ": " + refusal->why + "); the trace holds no call to replay";
    }
    for (size_t j = 0; j < i; ++j) {
      if (traces[j].library == traces[i].library) {
        *exitCode = kReplayBadInput;
        return std::string("two traces of ") + LibraryFile(traces[i].library) + " (" + traces[j].name +
               ", " + traces[i].name + "); a replay takes one per library";
      }
    }
  }
  return "";
}

}  // namespace

RecordedRun RecordUpdate(const std::filesystem::path& packageDir,
                         const std::function<void(sim::SimulatedLaptop&)>& arrange,
                         const std::string& run) {
  check::StagedPackage package(packageDir);
  sim::SimulatedLaptop laptop;
  Arrange(laptop, package);
  if (arrange) arrange(laptop);
  // A library the arrangement left out stays out, unrecorded.
  RecordingBridge bridge(laptop.bridge != nullptr ? *laptop.bridge : laptop.sensor, laptop.clock);
  RecordingUpgrade upgrade(laptop.upgrade != nullptr ? *laptop.upgrade : laptop.touchpad,
                           laptop.clock, package.machine().moduleDir());
  if (laptop.bridge != nullptr) laptop.bridge = &bridge;
  if (laptop.upgrade != nullptr) laptop.upgrade = &upgrade;
  // calder.exe's own recorder, writing the text its trace file gets.
  TraceText hidText;
  const std::string dir = package.machine().moduleDir();
  RecordingHidHost hid(*laptop.hid, [&laptop] { return static_cast<int64_t>(laptop.clock.NowMs()) * 1000; }, dir, [&] {
    Trace header;
    header.library = TraceLibrary::kHid;
    header.run = run;
    hidText.Append(FormatTraceHeader(header));
    return &hidText;
  });
  laptop.hid = &hid;
  RecordedRun recorded;
  recorded.result = RunQuietly(laptop, run);
  sim::TakeViolations();
  recorded.bridge = std::move(bridge.trace);
  recorded.upgrade = std::move(upgrade.trace);
  std::string error;
  if (!ParseTrace(hidText.text, "hid", &recorded.hid, &error)) recorded.hid.name = error;
  return recorded;
}

ReplayOutcome ReplayUpdate(const std::vector<Trace>& traces, const std::filesystem::path& packageDir) {
  ReplayOutcome outcome;
  outcome.problem = Unplayable(traces, &outcome.exitCode);
  if (!outcome.problem.empty()) return outcome;
  check::StagedPackage package(packageDir);
  sim::SimulatedLaptop laptop;
  Arrange(laptop, package);
  const std::string programDir = package.machine().moduleDir();
  std::unique_ptr<TracedBridge> bridge;
  std::unique_ptr<TracedUpgrade> upgrade;
  std::unique_ptr<TracedHid> hid;
  std::string run = "--update";
  std::vector<TracePlayer*> players;
  for (const Trace& trace : traces) {
    if (trace.library == TraceLibrary::kHid) {
      hid = std::make_unique<TracedHid>(trace, programDir, laptop.clock, outcome.state);
      laptop.hid = hid.get();
      players.push_back(&hid->player);
      if (!trace.run.empty()) run = trace.run;
    } else if (trace.library == TraceLibrary::kBridge) {
      bridge = std::make_unique<TracedBridge>(trace, programDir, laptop.clock, outcome.state);
      laptop.bridge = bridge.get();
      players.push_back(&bridge->player);
    } else {
      upgrade = std::make_unique<TracedUpgrade>(trace, programDir, laptop.clock, outcome.state);
      laptop.upgrade = upgrade.get();
      players.push_back(&upgrade->player);
    }
  }
  outcome.runResult = RunQuietly(laptop, run);
  // The models' complaints about a replayed exchange are the replay's
  // divergence to report, not theirs.
  sim::TakeViolations();
  for (TracePlayer* player : players) player->Finish();
  for (size_t i = 0; i < traces.size(); ++i) {
    outcome.traces.push_back({traces[i].name, traces[i].CallCount(), players[i]->matched()});
  }
  outcome.exitCode = outcome.state.divergence ? kReplayDiverged
                     : outcome.state.ranPastEnd ? kReplayCutOff
                                                : kReplayMatched;
  return outcome;
}

}  // namespace calder::replay
