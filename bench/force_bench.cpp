// The force phase on 1 KB, 30 KB and 49 KB tagged images against the sensor
// model: once on the virtual clock (the sum of the fixed pauses) and once on
// the real clock (wall time), giving the overhead of everything that is not
// a pause, and the peak memory of the process.
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

#include "base/log.h"
#include "force/force_update.h"
#include "platform/clock.h"
#include "platform/environment.h"
#include "sim/simulated_laptop.h"

namespace {

constexpr size_t kImageSizes[] = {1024, 30000, 49984};

std::string WriteTaggedImage(size_t imageSize) {
  const auto folder = std::filesystem::temp_directory_path() / "calder-force-bench";
  std::filesystem::create_directories(folder);
  const auto path = folder / "1.0.2.3.bin";
  std::vector<char> file(72 + imageSize);
  std::memcpy(file.data() + 24, "AW8680", 6);
  for (size_t i = 0; i < imageSize; ++i) file[72 + i] = static_cast<char>((i * 13 + 7) % 256);
  std::ofstream(path, std::ios::binary).write(file.data(), static_cast<std::streamsize>(file.size()));
  return path.string();
}

struct Outcome {
  bool ok;
  double wallSeconds;
};

Outcome RunPhase(calder::Clock& clock, const std::string& path, size_t imageSize) {
  calder::sim::SimulatedLaptop laptop(clock);
  calder::sim::ForceSensor& sensor = laptop.sensor;
  calder::ScopedEnvironment scope(laptop.Wiring());
  const auto start = std::chrono::steady_clock::now();
  const bool ok = calder::UpdateForce("1.0.2.3", path);
  const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
  if (sensor.badPackets != 0 || sensor.writtenBlocks.size() != (imageSize + 63) / 64) {
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
  for (const size_t size : kImageSizes) {
    const std::string path = WriteTaggedImage(size);
    calder::VirtualClock virtualClock;
    const Outcome simulated = RunPhase(virtualClock, path, size);
    calder::SteadyClock steadyClock;
    const Outcome real = RunPhase(steadyClock, path, size);
    if (!simulated.ok || !real.ok) {
      std::fprintf(stderr, "force phase failed on %zu bytes\n", size);
      return 1;
    }
    const double pauses = virtualClock.TotalSleptMs() / 1000.0;
    const std::string name = "force " + std::to_string(size) + " B tagged: ";
    Report((name + "wall time, real clock").c_str(), real.wallSeconds, "s");
    Report((name + "sum of pauses").c_str(), pauses, "s");
    Report((name + "overhead ratio wall/pauses").c_str(), real.wallSeconds / pauses, "x");
    Report((name + "work without pauses").c_str(), simulated.wallSeconds * 1000.0, "ms");
    Report((name + "pauses taken").c_str(), static_cast<double>(virtualClock.sleeps().size()),
           "count");
  }
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  Report("force bench: peak memory (max RSS)", usage.ru_maxrss / 1024.0, "MiB");
  return 0;
}
