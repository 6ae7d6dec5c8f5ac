#pragma once

#include <string>

#include "platform/bridge_library.h"

namespace calder {

// btl_hid_transfer.dll from the executable's folder, loaded on the first
// call and bound all or nothing.
// While it cannot be bound every call returns kBridgeUnavailable.
class Win32BridgeLibrary : public BridgeLibrary {
 public:
  // Tests point it at another file or path; the program uses the vendor's name.
  explicit Win32BridgeLibrary(std::wstring dllName = kBridgeLibraryFile);
  ~Win32BridgeLibrary() override;
  Win32BridgeLibrary(const Win32BridgeLibrary&) = delete;
  Win32BridgeLibrary& operator=(const Win32BridgeLibrary&) = delete;

  int btl_init_driver_7853() override;
  int btl_open_device() override;
  int btl_write_data(unsigned char* buffer, int length) override;
  int btl_read_data(unsigned char* buffer, int length) override;
  int btl_close_device() override;
  int btl_uninstall_driver() override;
  std::string UnavailableReason() override;

 private:
  struct Table;
  const Table* Bound();

  std::wstring dllName_;
  bool tried_ = false;
  void* module_ = nullptr;
  Table* table_ = nullptr;
  std::string reason_;
};

// The process's one instance, bound to the vendor's DLL name.
BridgeLibrary* Win32Bridge();

}  // namespace calder
