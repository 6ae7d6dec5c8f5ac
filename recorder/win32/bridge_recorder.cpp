// Recorder btl_hid_transfer.dll: the vendor's bridge from vendor\ beside it,
// every call forwarded unchanged and written to the run's bridge trace.
#include <cstring>
#include <memory>

#include "platform/win32/win32_bridge_library.h"
#include "recorder/win32/recording.h"

namespace {

using calder::Win32BridgeLibrary;
using calder::recorder::Recording;
using calder::recorder::TraceLine;

// Frames and replies are a few dozen bytes; a longer buffer is hexed from the
// caller's after the call.
constexpr int kSnapshotBytes = 512;

struct Recorder {
  Recording recording{calder::kBridgeLibraryFile, "bridge"};
  // Null when the vendor folder is refused: every call then answers the
  // bridge's "cannot be bound" result, as a missing library would.
  std::unique_ptr<Win32BridgeLibrary> vendor =
      recording.VendorPath().empty() ? nullptr
                                     : std::make_unique<Win32BridgeLibrary>(recording.VendorPath());
};

Recorder& Self() {
  static Recorder recorder;
  return recorder;
}

template <typename Call>
int Plain(const char* name, Call call) {
  Recorder& r = Self();
  const uint64_t t = r.recording.EnterCall();
  const int rc = r.vendor ? call(*r.vendor) : calder::kBridgeUnavailable;
  r.recording.trace().Write(t, [&](TraceLine& line) { line.Text("fn", name).Int("rc", rc); });
  return rc;
}

}  // namespace

extern "C" {

// Only a recorder exports this: calder-check refuses a package that holds one.
__declspec(dllexport) int calder_recorder() { return 1; }

__declspec(dllexport) int btl_init_driver_7853() {
  return Plain("btl_init_driver_7853",
               [](Win32BridgeLibrary& v) { return v.btl_init_driver_7853(); });
}

__declspec(dllexport) int btl_open_device() {
  return Plain("btl_open_device", [](Win32BridgeLibrary& v) { return v.btl_open_device(); });
}

__declspec(dllexport) int btl_write_data(unsigned char* buffer, int length) {
  Recorder& r = Self();
  const uint64_t t = r.recording.EnterCall();
  unsigned char before[kSnapshotBytes];
  const bool snapshot = buffer != nullptr && length > 0 && length <= kSnapshotBytes;
  if (snapshot) std::memcpy(before, buffer, static_cast<size_t>(length));
  const int rc =
      r.vendor ? r.vendor->btl_write_data(buffer, length) : calder::kBridgeUnavailable;
  r.recording.trace().Write(t, [&](TraceLine& line) {
    line.Text("fn", "btl_write_data").Hex("in", snapshot ? before : buffer, length);
    line.Int("len", length).Int("rc", rc);
  });
  return rc;
}

__declspec(dllexport) int btl_read_data(unsigned char* buffer, int length) {
  Recorder& r = Self();
  const uint64_t t = r.recording.EnterCall();
  const int rc =
      r.vendor ? r.vendor->btl_read_data(buffer, length) : calder::kBridgeUnavailable;
  r.recording.trace().Write(t, [&](TraceLine& line) {
    line.Text("fn", "btl_read_data").Hex("out", buffer, length).Int("len", length).Int("rc", rc);
  });
  return rc;
}

__declspec(dllexport) int btl_close_device() {
  return Plain("btl_close_device", [](Win32BridgeLibrary& v) { return v.btl_close_device(); });
}

__declspec(dllexport) int btl_uninstall_driver() {
  return Plain("btl_uninstall_driver",
               [](Win32BridgeLibrary& v) { return v.btl_uninstall_driver(); });
}

}  // extern "C"
