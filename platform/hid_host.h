#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace calder {

// A platform file handle (HANDLE on Windows).
using HidHandle = void*;

// INVALID_HANDLE_VALUE, without <windows.h>.
inline HidHandle InvalidHidHandle() {
  return reinterpret_cast<HidHandle>(~static_cast<uintptr_t>(0));
}

struct HidAttributes {
  uint16_t vendorId = 0;
  uint16_t productId = 0;
};

// The host's calls as a HID trace names them, in declaration order.
enum HidCall { kHidInterfaces, kHidAttributes, kHidOpen, kHidClose, kHidSetOutputReport,
               kHidGetInputReport };
inline constexpr const char* kHidCalls[] = {"hid_interfaces", "hid_attributes", "hid_open",
                                            "hid_close", "hid_set_output_report",
                                            "hid_get_input_report"};

// The machine's HID interfaces: SetupAPI enumeration, hid.dll reports and
// file handles. Every call is synchronous.
class HidHost {
 public:
  virtual ~HidHost() = default;

  // Device paths of all present HID interfaces, in enumeration order; empty
  // when the enumeration cannot start. Interfaces whose detail cannot be
  // read are left out.
  virtual std::vector<std::u16string> InterfacePaths() = 0;

  // Opens the path for query only, reads its attributes and closes it again.
  virtual bool ProbeAttributes(const std::u16string& path, HidAttributes* attributes) = 0;

  // Opens the path for reading and writing; InvalidHidHandle() on failure.
  virtual HidHandle OpenReadWrite(const std::u16string& path) = 0;

  // False when the handle was not open (a second close).
  virtual bool Close(HidHandle handle) = 0;

  virtual bool SetOutputReport(HidHandle handle, const uint8_t* report, size_t size) = 0;

  // Byte 0 of the buffer carries the report identifier on the way in.
  virtual bool GetInputReport(HidHandle handle, uint8_t* report, size_t size) = 0;
};

}  // namespace calder
