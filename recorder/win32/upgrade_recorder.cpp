// Recorder btl_upgrade.dll: the vendor's upgrade library from vendor\ beside
// it, every call forwarded and written to the run's upgrade trace, the
// callbacks the library makes each as a line of their own.
#include <memory>

#include "base/sha256.h"

#include "platform/win32/upgrade_library_win32.h"
#include "recorder/win32/recording.h"
#include "touchpad/btl_upgrade_config.h"

namespace {

using calder::btl_upgrade_config;
using calder::recorder::Recording;
using calder::TraceLine;

struct Recorder {
  Recording recording{calder::kUpgradeLibraryFile, calder::TraceLibrary::kUpgrade};
  // Null when the vendor folder is refused: every call then answers "cannot
  // be bound" (126), as a missing library would.
  std::unique_ptr<calder::Win32UpgradeLibrary> vendor =
      recording.VendorPath().empty()
          ? nullptr
          : std::make_unique<calder::Win32UpgradeLibrary>(recording.VendorPath().c_str());
  // The record the library gets: the caller's, byte for byte, but with our
  // callbacks in front of the caller's. The library may keep its address
  // until deinit, so it lives as long as the recorder.
  btl_upgrade_config config{};
  calder::btl_progress_callback progress = nullptr;
  calder::btl_log_callback log = nullptr;
};

Recorder& Self() {
  static Recorder recorder;
  return recorder;
}

void RecordCallback(const char* cb, int32_t value, const char* text) {
  Recorder& r = Self();
  TraceLine line;
  line.tUs = r.recording.Now();
  line.cb = cb;
  line.value = value;
  line.text = calder::TextOf(text);
  r.recording.Write(line);
}

void RecordProgress(int32_t value, const char* text) {
  RecordCallback("progress", value, text);
  if (Self().progress != nullptr) Self().progress(value, text);
}

void RecordLog(int32_t level, const char* text) {
  RecordCallback("log", level, text);
  if (Self().log != nullptr) Self().log(level, text);
}

// The call forwarded (or answered 126 unbound) and its line, which `line`
// starts with what the call hands the library; `after` adds what it got back.
template <typename Call, typename After>
int32_t Recorded(TraceLine line, Call call, After after) {
  Recorder& r = Self();
  line.tUs = r.recording.EnterCall();
  // The file is hashed within the call's time, not the program's pause.
  if (line.path) {
    line.sha256 = calder::check::FileSha256(*line.path);
    line.path = r.recording.InPackage(*line.path);
  }
  line.rc = r.vendor ? call(*r.vendor) : calder::kUpgradeLibraryNotFound;
  line.retUs = r.recording.Now();
  after(line);
  r.recording.Write(line);
  return *line.rc;
}

TraceLine FileCall(const char* name, const char* path) {
  TraceLine line = calder::CallLine(name);
  line.path = calder::TextOf(path);
  return line;
}

template <typename Value>
int32_t Query(const char* name, Value* value,
              int32_t (calder::Win32UpgradeLibrary::*query)(Value*)) {
  TraceLine line = calder::CallLine(name);
  line.in = calder::BytesOf(value, sizeof(Value));
  return Recorded(
      std::move(line), [&](calder::Win32UpgradeLibrary& v) { return (v.*query)(value); },
      [&](TraceLine& done) { done.out = calder::BytesOf(value, sizeof(Value)); });
}

}  // namespace

#define RECORDER_EXPORT extern "C" __declspec(dllexport)

// Only a recorder exports this: calder-check refuses a package that holds one.
RECORDER_EXPORT int calder_recorder() { return 1; }

RECORDER_EXPORT int32_t btl_upgrade_init(btl_upgrade_config* config) {
  Recorder& r = Self();
  btl_upgrade_config* passed = config;
  if (config != nullptr) {
    r.config = *config;
    r.progress = config->progress;
    r.log = config->log;
    // A callback the caller leaves unset stays unset for the library.
    r.config.progress = config->progress != nullptr ? &RecordProgress : nullptr;
    r.config.log = config->log != nullptr ? &RecordLog : nullptr;
    passed = &r.config;
  }
  TraceLine line = calder::CallLine("btl_upgrade_init");
  line.config = calder::RecordedConfig(config);
  return Recorded(
      std::move(line), [&](calder::Win32UpgradeLibrary& v) { return v.Init(passed); },
      [](TraceLine&) {});
}

RECORDER_EXPORT int32_t btl_upgrade_from_file(const char* path) {
  return Recorded(
      FileCall("btl_upgrade_from_file", path),
      [&](calder::Win32UpgradeLibrary& v) { return v.UpgradeFromFile(path); }, [](TraceLine&) {});
}

RECORDER_EXPORT int32_t btl_get_checksum(uint32_t* checksum) {
  return Query("btl_get_checksum", checksum, &calder::Win32UpgradeLibrary::GetChecksum);
}

RECORDER_EXPORT int32_t btl_get_firmware_version(uint8_t* version) {
  return Query("btl_get_firmware_version", version, &calder::Win32UpgradeLibrary::GetFirmwareVersion);
}

RECORDER_EXPORT int32_t btl_get_chip_id(uint8_t* chipId) {
  return Query("btl_get_chip_id", chipId, &calder::Win32UpgradeLibrary::GetChipId);
}

RECORDER_EXPORT int32_t btl_check_need_upgrade(const char* path, uint32_t* needUpgrade) {
  TraceLine line = FileCall("btl_check_need_upgrade", path);
  line.in = calder::BytesOf(needUpgrade, 4);
  return Recorded(
      std::move(line),
      [&](calder::Win32UpgradeLibrary& v) { return v.CheckNeedUpgrade(path, needUpgrade); },
      [&](TraceLine& done) { done.out = calder::BytesOf(needUpgrade, 4); });
}

RECORDER_EXPORT void btl_upgrade_deinit() {
  Recorder& r = Self();
  TraceLine line = calder::CallLine("btl_upgrade_deinit");
  line.tUs = r.recording.EnterCall();
  if (r.vendor) r.vendor->Deinit();
  line.retUs = r.recording.Now();
  r.recording.Write(line);
}
