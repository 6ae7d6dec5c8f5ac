// The whole update path on the host against the three device models: the
// peak memory of `main --update` with a 49 KB force image, the touchpad
// phase (reset, its fixed pause, TPMain) and the version report on the real
// clock, each against the sum of the pauses it must take.
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "base/log.h"
#include "driver/update_phases.h"
#include "platform/clock.h"
#include "platform/file_system.h"
#include "platform/process_info.h"
#include "sim/simulated_laptop.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t kForceImageSize = 49984;
constexpr size_t kTouchpadImageSize = 64 * 1024;

// The program names its files "<module dir>\TP\<name>"; on the host such a
// path is one file name in the module's parent folder, so the bench writes
// the firmware under exactly those names and lists them itself.
class BenchMachine : public calder::FileSystem, public calder::ProcessInfo {
 public:
  explicit BenchMachine(const fs::path& folder) : moduleDir_((folder / "calder").string()) {}

  std::string AddFirmware(const std::string& subfolder, const std::string& name,
                          const std::vector<char>& bytes) {
    const std::string path = moduleDir_ + "\\" + subfolder + "\\" + name;
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    listings_[moduleDir_ + "\\" + subfolder + "\\*"] = name;
    written_.push_back(path);
    return path;
  }
  void RemoveFirmware() {
    for (const std::string& path : written_) fs::remove(path);
  }

  bool MakeFolder(const std::string&) override { return true; }
  bool WriteNewFile(const std::string&, const void*, size_t) override { return true; }
  bool RemoveFile(const std::string&) override { return true; }
  calder::PathFacts Inspect(const std::string&) override {
    return {true, false, calder::PathOwner::kSystemOrAdministrators};
  }
  bool ListFolder(const std::string& pattern,
                  const std::function<bool(const calder::FolderEntry&)>& visit) override {
    const auto found = listings_.find(pattern);
    if (found == listings_.end()) return false;
    visit(calder::FolderEntry{found->second, false});
    return true;
  }

  std::string ModulePathA() override { return moduleDir_ + "/calder.exe"; }
  std::u16string ModulePathW() override {
    const std::string narrow = ModulePathA();
    return std::u16string(narrow.begin(), narrow.end());
  }
  calder::LocalTime Now() override { return {2026, 4, 22, 9, 30, 15}; }
  unsigned long ProcessId() override { return 4812; }

 private:
  std::string moduleDir_;
  std::map<std::string, std::string> listings_;
  std::vector<std::string> written_;
};

std::vector<char> ForceFile(size_t imageSize) {
  std::vector<char> file(72 + imageSize);
  std::memcpy(file.data() + 24, "AW8680", 6);
  for (size_t i = 0; i < imageSize; ++i) file[72 + i] = static_cast<char>((i * 13 + 7) % 256);
  return file;
}

std::vector<char> TouchpadFile() {
  std::vector<char> file(kTouchpadImageSize);
  for (size_t i = 0; i < file.size(); ++i) file[i] = static_cast<char>(i * 31 + 3);
  return file;
}

// The laptop on the given clock, with the bench machine's firmware folders.
struct Rig : calder::sim::SimulatedLaptop {
  Rig(calder::Clock& clock, BenchMachine& machine) : SimulatedLaptop(clock) {
    files = &machine;
    process = &machine;
  }
};

double Seconds(const std::function<int()>& run, int* result) {
  const auto start = std::chrono::steady_clock::now();
  *result = run();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double PeakRssMiB() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss / 1024.0;
}

void Report(const std::string& metric, double value, const char* unit) {
  std::printf("BENCH\t%s\t%.3f\t%s\n", metric.c_str(), value, unit);
}

}  // namespace

int main() {
  const fs::path folder = fs::temp_directory_path() / "calder-update-bench";
  fs::create_directories(folder);
  // The program logs as it does on Windows, to a file only.
  el::Configurations log;
  log.setToDefault();
  log.setGlobally(el::ConfigurationType::ToStandardOutput, "false");
  log.setGlobally(el::ConfigurationType::Filename, (folder / "update.log").string());
  el::Loggers::reconfigureAllLoggers(log);

  BenchMachine machine(folder);
  machine.AddFirmware("TP", "tp_fw.bin", TouchpadFile());
  machine.AddFirmware("Force", "1.0.2.3.bin", ForceFile(kForceImageSize));
  const double baseline = PeakRssMiB();
  int failures = 0;

  {  // The whole update, on virtual time: memory, not time, is measured here.
    calder::VirtualClock clock;
    Rig rig(clock, machine);
    int rc = 1;
    Seconds([&] { return rig.RunMain({"--update"}); }, &rc);
    const bool written = rig.sensor.writtenBlocks.size() == (kForceImageSize + 63) / 64;
    if (rc != 0 || !written) {
      std::fprintf(stderr, "update failed: rc %d, %zu blocks\n", rc, rig.sensor.writtenBlocks.size());
      ++failures;
    }
    Report("update path (49 KB force image): peak memory (max RSS)", PeakRssMiB(), "MiB");
    Report("update path: peak memory above the bench's own start", PeakRssMiB() - baseline,
           "MiB");
  }

  {  // Touchpad phase: reset, the fixed pause and TPMain, force phase left out.
    calder::UpdatePhases phases = calder::RealPhases();
    phases.forceUpgrade = [] { return true; };
    double pauses = 0;
    double wall = 0;
    for (int pass = 0; pass < 2; ++pass) {
      calder::VirtualClock virtualClock;
      calder::SteadyClock steadyClock;
      calder::Clock& clock = pass == 0 ? static_cast<calder::Clock&>(virtualClock) : steadyClock;
      Rig rig(clock, machine);
      int rc = 1;
      const double seconds = Seconds([&] { return rig.RunMain({"--update"}, phases); }, &rc);
      if (rc != 0) ++failures;
      if (pass == 0) pauses = virtualClock.TotalSleptMs() / 1000.0;
      if (pass == 1) wall = seconds;
    }
    Report("touchpad phase: wall time, real clock", wall, "s");
    Report("touchpad phase: sum of pauses", pauses, "s");
    Report("touchpad phase: overhead ratio wall/pauses", wall / pauses, "x");
  }

  {  // Version report: calibration, force and touchpad versions over HID.
    calder::VirtualClock virtualClock;
    double pauses = 0;
    {
      Rig rig(virtualClock, machine);
      if (rig.RunMain({"--version"}) != 0) ++failures;
      pauses = virtualClock.TotalSleptMs() / 1000.0;
    }
    calder::SteadyClock steadyClock;
    Rig rig(steadyClock, machine);
    int rc = 1;
    const double wall = Seconds([&] { return rig.RunMain({"--version"}); }, &rc);
    if (rc != 0) ++failures;
    Report("version report: wall time, real clock", wall * 1000.0, "ms");
    Report("version report: sum of pauses", pauses * 1000.0, "ms");
    Report("version report: overhead ratio wall/pauses", wall / pauses, "x");
  }

  machine.RemoveFirmware();
  if (failures != 0) std::fprintf(stderr, "%d bench runs failed\n", failures);
  return failures == 0 ? 0 : 1;
}
