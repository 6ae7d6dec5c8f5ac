// Recorder btl_upgrade.dll: the vendor's upgrade library from vendor\ beside
// it, every call forwarded and written to the run's upgrade trace, the
// callbacks the library makes each as a line of their own.
#include <memory>

#include "platform/win32/upgrade_library_win32.h"
#include "recorder/win32/recording.h"

namespace {

using calder::btl_upgrade_config;
using calder::recorder::Recording;
using calder::recorder::TraceLine;

struct Recorder {
  Recording recording{calder::kUpgradeLibraryFile, "upgrade"};
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

void RecordProgress(int32_t value, const char* text) {
  Recorder& r = Self();
  r.recording.trace().Write(r.recording.Now(), [&](TraceLine& line) {
    line.Text("cb", "progress").Int("value", value).Text("text", text);
  });
  if (r.progress != nullptr) r.progress(value, text);
}

void RecordLog(int32_t level, const char* text) {
  Recorder& r = Self();
  r.recording.trace().Write(r.recording.Now(), [&](TraceLine& line) {
    line.Text("cb", "log").Int("level", level).Text("text", text);
  });
  if (r.log != nullptr) r.log(level, text);
}

// The call forwarded (or answered 126 unbound), then its line with what fill adds.
template <typename Call, typename Fill>
int32_t Recorded(const char* name, Call call, Fill fill) {
  Recorder& r = Self();
  const uint64_t t = r.recording.EnterCall();
  const int32_t rc = r.vendor ? call(*r.vendor) : calder::kUpgradeLibraryNotFound;
  r.recording.trace().Write(t, [&](TraceLine& line) {
    line.Text("fn", name);
    fill(line);
    line.Int("rc", rc);
  });
  return rc;
}

template <typename Value>
int32_t Query(const char* name, Value* value,
              int32_t (calder::Win32UpgradeLibrary::*query)(Value*)) {
  const bool readable = value != nullptr;
  const Value before = readable ? *value : Value{};
  return Recorded(
      name, [&](calder::Win32UpgradeLibrary& v) { return (v.*query)(value); },
      [&](TraceLine& line) {
        line.Hex("in", readable ? &before : nullptr, sizeof(Value));
        line.Hex("out", value, sizeof(Value));
      });
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
  return Recorded(
      "btl_upgrade_init", [&](calder::Win32UpgradeLibrary& v) { return v.Init(passed); },
      [&](TraceLine& line) { line.Config("config", config); });
}

RECORDER_EXPORT int32_t btl_upgrade_from_file(const char* path) {
  const std::string sha = calder::recorder::FileSha256(path);
  return Recorded(
      "btl_upgrade_from_file", [&](calder::Win32UpgradeLibrary& v) { return v.UpgradeFromFile(path); },
      [&](TraceLine& line) {
        line.Text("path", path).Text("sha256", sha.empty() ? nullptr : sha.c_str());
      });
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
  const std::string sha = calder::recorder::FileSha256(path);
  const bool readable = needUpgrade != nullptr;
  const uint32_t before = readable ? *needUpgrade : 0;
  return Recorded(
      "btl_check_need_upgrade",
      [&](calder::Win32UpgradeLibrary& v) { return v.CheckNeedUpgrade(path, needUpgrade); },
      [&](TraceLine& line) {
        line.Text("path", path).Text("sha256", sha.empty() ? nullptr : sha.c_str());
        line.Hex("in", readable ? &before : nullptr, 4).Hex("out", needUpgrade, 4);
      });
}

RECORDER_EXPORT void btl_upgrade_deinit() {
  Recorder& r = Self();
  const uint64_t t = r.recording.EnterCall();
  if (r.vendor) r.vendor->Deinit();
  r.recording.trace().Write(t, [](TraceLine& line) { line.Text("fn", "btl_upgrade_deinit"); });
}
