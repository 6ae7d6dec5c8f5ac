#pragma once

#include "platform/hid_host.h"

namespace calder {

// SetupAPI enumeration, hid.dll reports and file handles. Both DLLs are
// bound on first use; without them the machine shows no HID devices.
class Win32HidHost : public HidHost {
 public:
  std::vector<std::u16string> InterfacePaths() override;
  bool ProbeAttributes(const std::u16string& path, HidAttributes* attributes) override;
  HidHandle OpenReadWrite(const std::u16string& path) override;
  bool Close(HidHandle handle) override;
  bool SetOutputReport(HidHandle handle, const uint8_t* report, size_t size) override;
  bool GetInputReport(HidHandle handle, uint8_t* report, size_t size) override;
};

// The process-wide instance that InstallWin32Environment installs.
HidHost* Win32Hid();

}  // namespace calder
