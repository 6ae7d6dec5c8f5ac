// Stand-in btl_hid_transfer.dll: the force-sensor model behind the vendor's
// six calls. It reads its scenario and keeps its state in files beside
// itself (or in CALDER_FORCE_SIM_DIR), so a test can set faults before a run
// and inspect, or resume, the sensor afterwards:
//   force_sensor_scenario.txt  faults and version, "key=value" lines
//   force_sensor_state.txt     mode, version and what the sensor saw
//   force_sensor_flash.bin     the application flash from 0x01001000
// A scenario line "trace=PATH" answers every call from that recorded trace
// instead of the model.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "sim/trace/trace_emulation.h"
#include "sim/force_sensor.h"
#include "sim/force_sensor_files.h"
#include "sim/stand_in_violations.h"

namespace {

using calder::BridgeLibrary;
using calder::replay::TraceEmulation;
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

// Recorded paths are compared relative to the folder of the program that runs.
std::string ProgramFolder() {
  char path[MAX_PATH] = {};
  const DWORD length = GetModuleFileNameA(nullptr, path, MAX_PATH);
  const std::string program(path, length < MAX_PATH ? length : 0);
  const size_t slash = program.find_last_of("\\/");
  return slash == std::string::npos ? "." : program.substr(0, slash);
}

// Takes the "trace=" line out of the scenario: the model never sees it.
std::string TakeTraceSetting(std::string* scenario) {
  std::string rest, trace;
  size_t at = 0;
  while (at < scenario->size()) {
    size_t end = scenario->find('\n', at);
    end = end == std::string::npos ? scenario->size() : end + 1;
    const std::string line = scenario->substr(at, end - at);
    if (line.compare(0, 6, "trace=") == 0) {
      trace = line.substr(6, line.find_last_not_of("\r\n") - 5);
    } else {
      rest += line;
    }
    at = end;
  }
  *scenario = rest;
  return trace;
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

// Whole or not at all: a run killed in the middle leaves the last saved state,
// never a file cut short.
void WriteFile(const std::string& path, const void* data, size_t size) {
  const std::string fresh = path + ".new";
  std::FILE* file = std::fopen(fresh.c_str(), "wb");
  if (file == nullptr) return;
  const bool whole = std::fwrite(data, 1, size, file) == size;
  if (std::fclose(file) == 0 && whole) MoveFileExA(fresh.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING);
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
      const std::string trace = TakeTraceSetting(&text);
      if (!trace.empty()) {
        emulation_ = std::make_unique<TraceEmulation>(calder::TraceLibrary::kBridge, trace,
                                                      ProgramFolder());
      }
      std::string bad;
      if (!calder::sim::ApplyScenario(text, &sensor_, &bad)) {
        std::fprintf(stderr, "force sensor stand-in: bad scenario line: %s\n", bad.c_str());
      }
    }
  }

  ForceSensor& sensor() { return sensor_; }
  TraceEmulation* emulation() { return emulation_.get(); }

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
  std::unique_ptr<TraceEmulation> emulation_;
  std::string statePath_;
  std::string flashPath_;
  Snapshot saved_;
};

StandIn* live = nullptr;

StandIn& Sim() {
  static StandIn standIn;
  live = &standIn;
  return standIn;
}

void ReportEmulation(TraceEmulation& emulation) {
  for (const std::string& problem : emulation.TakeProblems()) calder::sim::RecordViolation(problem);
  calder::sim::ReportViolations("btl_hid_transfer");
}

template <typename Call>
int Saved(Call call) {
  StandIn& s = Sim();
  if (TraceEmulation* emulation = s.emulation()) {
    const int result = call(emulation->bridge());
    ReportEmulation(*emulation);
    return result;
  }
  const int result = call(s.sensor());
  s.Save();
  calder::sim::ReportViolations("btl_hid_transfer");
  return result;
}

}  // namespace

extern "C" {

// A run that ends short of its trace is told when the program lets go of the
// library (static objects still live here).
BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_DETACH && live != nullptr && live->emulation() != nullptr) {
    live->emulation()->Finish();
    ReportEmulation(*live->emulation());
  }
  return TRUE;
}

__declspec(dllexport) int btl_init_driver_7853() {
  return Saved([](BridgeLibrary& f) { return f.btl_init_driver_7853(); });
}

__declspec(dllexport) int btl_open_device() {
  return Saved([](BridgeLibrary& f) { return f.btl_open_device(); });
}

__declspec(dllexport) int btl_write_data(unsigned char* buffer, int length) {
  return Saved([&](BridgeLibrary& f) { return f.btl_write_data(buffer, length); });
}

__declspec(dllexport) int btl_read_data(unsigned char* buffer, int length) {
  return Saved([&](BridgeLibrary& f) { return f.btl_read_data(buffer, length); });
}

__declspec(dllexport) int btl_close_device() {
  return Saved([](BridgeLibrary& f) { return f.btl_close_device(); });
}

__declspec(dllexport) int btl_uninstall_driver() {
  return Saved([](BridgeLibrary& f) { return f.btl_uninstall_driver(); });
}

}  // extern "C"
