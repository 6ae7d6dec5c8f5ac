#pragma once

#include <string>

namespace calder {

// The vendor's HID bridge library (btl_hid_transfer.dll): the six calls the
// force upgrade makes, with their C signatures. 0 means success; any other
// value is the library's own error code.
class BridgeLibrary {
 public:
  virtual ~BridgeLibrary() = default;

  virtual int btl_init_driver_7853() = 0;
  virtual int btl_open_device() = 0;
  virtual int btl_write_data(unsigned char* buffer, int length) = 0;
  virtual int btl_read_data(unsigned char* buffer, int length) = 0;
  virtual int btl_close_device() = 0;
  virtual int btl_uninstall_driver() = 0;

  // Why the library could not be bound (missing DLL or entry point); empty
  // while it is bound or untried.
  virtual std::string BindError() const { return std::string(); }
};

// The library's file and the entry points bound from it, in binding order.
inline constexpr wchar_t kBridgeLibraryFile[] = L"btl_hid_transfer.dll";
enum BridgeEntryPoint { kInitDriver, kOpenDevice, kWriteData, kReadData, kCloseDevice,
                        kUninstallDriver };
inline constexpr const char* kBridgeLibraryEntryPoints[] = {
    "btl_init_driver_7853", "btl_open_device",  "btl_write_data",
    "btl_read_data",        "btl_close_device", "btl_uninstall_driver"};

// Result of every call of a library that could not be bound.
// Kept as the field sees it: -1, which the force phase logs as its driver
// error code, where the upgrade library answers 126 or 127.
constexpr int kBridgeUnavailable = -1;

}  // namespace calder
