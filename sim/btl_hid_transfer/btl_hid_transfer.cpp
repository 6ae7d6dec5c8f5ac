// Stand-in btl_hid_transfer.dll: the force-sensor model behind the vendor's
// six calls. It reads its scenario and keeps its state in files beside
// itself (or in CALDER_FORCE_SIM_DIR), so a test can set faults before a run
// and inspect, or resume, the sensor afterwards:
//   force_sensor_scenario.txt  faults and version, "key=value" lines
//   force_sensor_state.txt     mode, version and what the sensor saw
//   force_sensor_flash.bin     the application flash from 0x01001000
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "sim/force_sensor.h"
#include "sim/force_sensor_files.h"
#include "sim/stand_in_violations.h"

namespace {

using calder::sim::ForceSensor;

constexpr uint64_t kStandInBootWindowMs = 50;

std::string ThisFolder() {
  HMODULE self = nullptr;
  GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                         GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                     reinterpret_cast<LPCSTR>(&ThisFolder), &self);
  char path[MAX_PATH] = {};
  GetModuleFileNameA(self, path, MAX_PATH);
  std::string folder = path;
  const size_t slash = folder.find_last_of("\\/");
  return slash == std::string::npos ? "." : folder.substr(0, slash);
}

bool ReadFile(const std::string& path, std::string* content) {
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) return false;
  char chunk[4096];
  size_t n;
  while ((n = std::fread(chunk, 1, sizeof chunk, file)) > 0) content->append(chunk, n);
  std::fclose(file);
  return true;
}

void WriteFile(const std::string& path, const void* data, size_t size) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return;
  std::fwrite(data, 1, size, file);
  std::fclose(file);
}

class StandIn {
 public:
  StandIn() : sensor_(clock_) {
    // Under Wine on a busy machine the first boot-hold frame can come more
    // than 10 ms after the release; the program sends it at once, so a wider
    // window only hides the test machine's scheduling, not a late frame.
    sensor_.bootWindowMs = kStandInBootWindowMs;
    const char* dir = std::getenv("CALDER_FORCE_SIM_DIR");
    const std::string folder = dir != nullptr && *dir != '\0' ? dir : ThisFolder();
    statePath_ = folder + "\\force_sensor_state.txt";
    flashPath_ = folder + "\\force_sensor_flash.bin";
    // Resume a sensor an earlier run left behind.
    std::string text;
    if (ReadFile(statePath_, &text)) calder::sim::RestoreState(text, &sensor_);
    std::string flash;
    if (ReadFile(flashPath_, &flash) && flash.size() == sensor_.flash.size()) {
      sensor_.flash.assign(flash.begin(), flash.end());
    }
    text.clear();
    if (ReadFile(folder + "\\force_sensor_scenario.txt", &text)) {
      std::string bad;
      if (!calder::sim::ApplyScenario(text, &sensor_, &bad)) {
        std::fprintf(stderr, "force sensor stand-in: bad scenario line: %s\n", bad.c_str());
      }
    }
  }

  ForceSensor& sensor() { return sensor_; }

  // Saves only what changed, so a long write stays fast but a cut run still
  // leaves the flash as far as it got.
  void Save() {
    const Snapshot now = Take();
    if (now.flashChanges != saved_.flashChanges) {
      WriteFile(flashPath_, sensor_.flash.data(), sensor_.flash.size());
    }
    if (!(now == saved_)) {
      const std::string state = calder::sim::FormatState(sensor_);
      WriteFile(statePath_, state.data(), state.size());
    }
    saved_ = now;
  }

 private:
  struct Snapshot {
    size_t flashChanges = ~size_t{0};
    ForceSensor::Mode mode = ForceSensor::Mode::kApplication;
    size_t calls = 0;
    size_t touchFrames = 0;
    int connects = 0;
    size_t reads = 0;
    bool operator==(const Snapshot& o) const {
      return flashChanges == o.flashChanges && mode == o.mode && calls == o.calls &&
             touchFrames == o.touchFrames && connects == o.connects && reads == o.reads;
    }
  };
  Snapshot Take() const {
    Snapshot s;
    s.flashChanges = sensor_.erases.size() + sensor_.writtenBlocks.size();
    s.mode = sensor_.mode;
    s.calls = sensor_.calls.size();
    s.touchFrames = sensor_.touchFrames.size();
    s.connects = sensor_.connects;
    s.reads = sensor_.flashReads.size() / 64;  // the record now and then during a read-back
    return s;
  }

  calder::SteadyClock clock_;
  ForceSensor sensor_;
  std::string statePath_;
  std::string flashPath_;
  Snapshot saved_;
};

StandIn& Sim() {
  static StandIn standIn;
  return standIn;
}

template <typename Call>
int Saved(Call call) {
  StandIn& s = Sim();
  const int result = call(s.sensor());
  s.Save();
  calder::sim::ReportViolations("btl_hid_transfer");
  return result;
}

}  // namespace

extern "C" {

__declspec(dllexport) int btl_init_driver_7853() {
  return Saved([](ForceSensor& f) { return f.btl_init_driver_7853(); });
}

__declspec(dllexport) int btl_open_device() {
  return Saved([](ForceSensor& f) { return f.btl_open_device(); });
}

__declspec(dllexport) int btl_write_data(unsigned char* buffer, int length) {
  return Saved([&](ForceSensor& f) { return f.btl_write_data(buffer, length); });
}

__declspec(dllexport) int btl_read_data(unsigned char* buffer, int length) {
  return Saved([&](ForceSensor& f) { return f.btl_read_data(buffer, length); });
}

__declspec(dllexport) int btl_close_device() {
  return Saved([](ForceSensor& f) { return f.btl_close_device(); });
}

__declspec(dllexport) int btl_uninstall_driver() {
  return Saved([](ForceSensor& f) { return f.btl_uninstall_driver(); });
}

}  // extern "C"
