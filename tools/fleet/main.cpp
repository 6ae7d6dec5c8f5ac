// calder-fleet OUT_DIR COUNT [--distinct K] [--seed S]: a simulated fleet's
// logs for the report's bench and demo. K runs of the update's core on the
// device models with faults drawn by weight, one in twenty cut off at a
// random point, copied out to COUNT log files (CR LF, as on Windows) in
// folders of a thousand.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "driver/logging.h"
#include "tools/fleet/log_writer.h"
#include "tools/fleet/scenarios.h"
#include "tools/fleet/simulated_machine.h"

namespace fs = std::filesystem;
using calder::fleet::Scenario;

namespace {

constexpr int kCutOneIn = 20;
constexpr int kFilesPerFolder = 1000;

const Scenario& Draw(std::mt19937& random) {
  int total = 0;
  for (const Scenario& s : calder::fleet::Scenarios()) total += s.weight;
  int pick = std::uniform_int_distribution<int>(0, total - 1)(random);
  for (const Scenario& s : calder::fleet::Scenarios()) {
    if (pick < s.weight) return s;
    pick -= s.weight;
  }
  return calder::fleet::Scenarios().front();
}

struct Run {
  std::string text;
  std::string name;  // Calder_<date>_<time>_<pid>.log
};

Run Simulate(std::mt19937& random, const fs::path& stage) {
  calder::fleet::SimulatedMachine machine(stage);
  calder::fleet::UseForceVersion(machine, std::uniform_int_distribution<int>(0, 3)(random) == 0 ? 5 : 3);
  machine.start = {2026, 5, std::uniform_int_distribution<int>(1, 28)(random),
                   std::uniform_int_distribution<int>(0, 23)(random),
                   std::uniform_int_distribution<int>(0, 59)(random),
                   std::uniform_int_distribution<int>(0, 59)(random)};
  const Scenario& scenario = Draw(random);
  scenario.arrange(machine);
  std::vector<std::string> lines = machine.Run(scenario.args);
  Run run;
  bool cut = false;
  if (std::uniform_int_distribution<int>(0, kCutOneIn - 1)(random) == 0 && lines.size() > 1) {
    const size_t keep = std::uniform_int_distribution<size_t>(1, lines.size() - 1)(random);
    lines.resize(keep);
    std::string& last = lines.back();
    last.resize(std::uniform_int_distribution<size_t>(1, last.size())(random));
    cut = true;
  }
  for (size_t i = 0; i < lines.size(); ++i) {
    run.text += lines[i];
    if (i + 1 < lines.size() || !cut) run.text += "\r\n";
  }
  char name[64];
  const auto& t = machine.start;
  std::snprintf(name, sizeof name, "Calder_%04d-%02d-%02d_%02d%02d%02d_", t.year, t.month, t.day, t.hour,
                t.minute, t.second);
  run.name = name;
  return run;
}

int Usage() {
  std::fprintf(stderr, "usage: calder-fleet OUT_DIR COUNT [--distinct K] [--seed S]\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return Usage();
  const fs::path out = argv[1];
  const long count = std::strtol(argv[2], nullptr, 10);
  long distinct = 400;
  unsigned seed = 19;
  for (int i = 3; i + 1 < argc; i += 2) {
    const std::string option = argv[i];
    if (option == "--distinct") {
      distinct = std::strtol(argv[i + 1], nullptr, 10);
    } else if (option == "--seed") {
      seed = static_cast<unsigned>(std::strtoul(argv[i + 1], nullptr, 10));
    } else {
      return Usage();
    }
  }
  if (count < 1 || distinct < 1) return Usage();
  calder::QuietDefaultLogger();
  std::error_code error;
  fs::create_directories(out, error);
  const fs::path stage = out / ".stage";
  fs::create_directories(stage, error);

  std::mt19937 random(seed);
  std::vector<Run> runs;
  for (long k = 0; k < std::min(distinct, count); ++k) runs.push_back(Simulate(random, stage));
  fs::remove_all(stage, error);

  for (long i = 0; i < count; ++i) {
    const Run& run = runs[static_cast<size_t>(i % static_cast<long>(runs.size()))];
    const fs::path folder = out / std::to_string(i / kFilesPerFolder);
    if (i % kFilesPerFolder == 0) fs::create_directories(folder, error);
    std::ofstream file(folder / (run.name + std::to_string(1000 + i) + ".log"), std::ios::binary);
    file.write(run.text.data(), static_cast<std::streamsize>(run.text.size()));
  }
  std::fprintf(stderr, "calder-fleet: %ld logs from %zu simulated runs in %s\n", count, runs.size(),
               out.string().c_str());
  return 0;
}
