// The force phase on a 30000-byte tagged image against the sensor model:
// once on the virtual clock (the sum of the fixed pauses) and once on the
// real clock (wall time), giving the overhead of everything that is not a
// pause, and the peak memory of the process.
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

#include "app/log.h"
#include "force/force_update.h"
#include "platform/clock.h"
#include "platform/environment.h"
#include "sim/force_sensor.h"

namespace {

constexpr size_t kImageSize = 30000;

std::string WriteTaggedImage() {
  const auto folder = std::filesystem::temp_directory_path() / "calder-force-bench";
  std::filesystem::create_directories(folder);
  const auto path = folder / "1.0.2.3.bin";
  std::vector<char> file(72 + kImageSize);
  std::memcpy(file.data() + 24, "AW8680", 6);
  for (size_t i = 0; i < kImageSize; ++i) file[72 + i] = static_cast<char>((i * 13 + 7) % 256);
  std::ofstream(path, std::ios::binary).write(file.data(), static_cast<std::streamsize>(file.size()));
  return path.string();
}

struct Outcome {
  bool ok;
  double wallSeconds;
};

Outcome RunPhase(calder::Clock& clock, const std::string& path) {
  calder::sim::ForceSensor sensor(clock);
  calder::Environment env;
  env.clock = &clock;
  env.bridge = &sensor;
  calder::ScopedEnvironment scope(env);
  const auto start = std::chrono::steady_clock::now();
  const bool ok = calder::UpdateForce("1.0.2.3", path);
  const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
  if (sensor.badPackets != 0 || sensor.writtenBlocks.size() != (kImageSize + 63) / 64) {
    std::fprintf(stderr, "unexpected sensor record: %d bad packets, %zu blocks\n",
                 sensor.badPackets, sensor.writtenBlocks.size());
    return {false, wall.count()};
  }
  return {ok, wall.count()};
}

void Report(const char* metric, double value, const char* unit) {
  std::printf("BENCH\t%s\t%.3f\t%s\n", metric, value, unit);
}

}  // namespace

int main() {
  el::Loggers::reconfigureAllLoggers(el::ConfigurationType::Enabled, "false");
  const std::string path = WriteTaggedImage();

  calder::VirtualClock virtualClock;
  const Outcome simulated = RunPhase(virtualClock, path);
  calder::SteadyClock steadyClock;
  const Outcome real = RunPhase(steadyClock, path);
  if (!simulated.ok || !real.ok) {
    std::fprintf(stderr, "force phase failed\n");
    return 1;
  }

  const double pauses = virtualClock.TotalSleptMs() / 1000.0;
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  Report("force 30000 B tagged: wall time, real clock", real.wallSeconds, "s");
  Report("force 30000 B tagged: sum of pauses, virtual clock", pauses, "s");
  Report("force 30000 B tagged: overhead ratio wall/pauses", real.wallSeconds / pauses, "x");
  Report("force 30000 B tagged: work without pauses", simulated.wallSeconds * 1000.0, "ms");
  Report("force 30000 B tagged: pauses taken", static_cast<double>(virtualClock.sleeps().size()),
         "count");
  Report("force 30000 B tagged: peak memory (max RSS)", static_cast<double>(usage.ru_maxrss),
         "KiB");
  return 0;
}
