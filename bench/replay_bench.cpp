// calder-replay on the trace of a 30 KB force image (about 2,000 bridge
// calls): the replay on the virtual clock and the decode, each in wall time.
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <vector>

#include "base/log.h"
#include "replay/replay_run.h"
#include "sim/trace/trace_decoder.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t kForceImageSize = 30000;

void Put(const fs::path& path, size_t size, int step) {
  std::vector<char> bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * step + 5) % 251 + 1);
  std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(size));
}

double SecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void Report(const char* metric, double value, const char* unit) {
  std::printf("BENCH\t%s\t%.3f\t%s\n", metric, value, unit);
}

}  // namespace

int main() {
  el::Loggers::reconfigureAllLoggers(el::ConfigurationType::Enabled, "false");
  const fs::path package = fs::temp_directory_path() / "calder-replay-bench";
  fs::create_directories(package / "TP");
  fs::create_directories(package / "Force");
  Put(package / "TP" / "tp_fw.bin", 16384, 13);
  Put(package / "Force" / "1.0.2.3.bin", kForceImageSize, 7);

  const calder::replay::RecordedRun run = calder::replay::RecordUpdate(package);
  const auto replayStart = std::chrono::steady_clock::now();
  const calder::replay::ReplayOutcome outcome =
      calder::replay::ReplayUpdate({run.bridge, run.upgrade}, package);
  const double replaySeconds = SecondsSince(replayStart);

  const auto decodeStart = std::chrono::steady_clock::now();
  size_t decodedBytes = 0;
  for (const calder::Trace* trace : {&run.bridge, &run.upgrade}) {
    calder::replay::TraceDecoder decoder(trace->library);
    for (const auto& line : trace->lines) decodedBytes += calder::replay::DecodedRow(line, decoder.Decode(line)).size();
  }
  const double decodeSeconds = SecondsSince(decodeStart);
  fs::remove_all(package);
  if (run.result != 0 || outcome.exitCode != calder::replay::kReplayMatched || decodedBytes == 0) {
    std::fprintf(stderr, "replay bench: record %d, replay exit %d\n", run.result, outcome.exitCode);
    return 1;
  }
  Report("replay 30 KB force image: bridge calls", static_cast<double>(run.bridge.CallCount()), "count");
  Report("replay 30 KB force image: wall time", replaySeconds, "s");
  Report("decode 30 KB force image trace: wall time", decodeSeconds * 1000.0, "ms");
  return 0;
}
