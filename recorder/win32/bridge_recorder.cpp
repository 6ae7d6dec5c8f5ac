// Recorder btl_hid_transfer.dll: the vendor's bridge from vendor\ beside it,
// every call forwarded unchanged and written to the run's bridge trace.
#include <memory>

#include "platform/win32/win32_bridge_library.h"
#include "recorder/win32/recording.h"

namespace {

using calder::Win32BridgeLibrary;
using calder::recorder::Recording;
using calder::TraceLine;

struct Recorder {
  Recording recording{calder::kBridgeLibraryFile, calder::TraceLibrary::kBridge};
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
  const int64_t t = r.recording.EnterCall();
  TraceLine line = calder::CallLine(name);
  line.tUs = t;
  line.rc = r.vendor ? call(*r.vendor) : calder::kBridgeUnavailable;
  line.retUs = r.recording.Now();
  r.recording.Write(line);
  return *line.rc;
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
  const int64_t t = r.recording.EnterCall();
  TraceLine line = calder::CallLine("btl_write_data");
  line.tUs = t;
  line.in = calder::BytesOf(buffer, length);
  line.len = length;
  line.rc = r.vendor ? r.vendor->btl_write_data(buffer, length) : calder::kBridgeUnavailable;
  line.retUs = r.recording.Now();
  r.recording.Write(line);
  return *line.rc;
}

__declspec(dllexport) int btl_read_data(unsigned char* buffer, int length) {
  Recorder& r = Self();
  const int64_t t = r.recording.EnterCall();
  TraceLine line = calder::CallLine("btl_read_data");
  line.tUs = t;
  line.len = length;
  line.rc = r.vendor ? r.vendor->btl_read_data(buffer, length) : calder::kBridgeUnavailable;
  line.out = calder::BytesOf(buffer, length);
  line.retUs = r.recording.Now();
  r.recording.Write(line);
  return *line.rc;
}

__declspec(dllexport) int btl_close_device() {
  return Plain("btl_close_device", [](Win32BridgeLibrary& v) { return v.btl_close_device(); });
}

__declspec(dllexport) int btl_uninstall_driver() {
  return Plain("btl_uninstall_driver",
               [](Win32BridgeLibrary& v) { return v.btl_uninstall_driver(); });
}

}  // extern "C"
