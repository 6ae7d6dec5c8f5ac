#pragma once

#include <string>

#include "platform/bridge_library.h"
#include "platform/win32/library_binding.h"

namespace calder {

// btl_hid_transfer.dll from the executable's folder, loaded on the first
// call and bound all or nothing.
// While it cannot be bound every call returns kBridgeUnavailable.
class Win32BridgeLibrary : public BridgeLibrary {
 public:
  // Tests point it at another file or path; the program uses the vendor's name.
  explicit Win32BridgeLibrary(std::wstring dllName = kBridgeLibraryFile);

  int btl_init_driver_7853() override;
  int btl_open_device() override;
  int btl_write_data(unsigned char* buffer, int length) override;
  int btl_read_data(unsigned char* buffer, int length) override;
  int btl_close_device() override;
  int btl_uninstall_driver() override;
  std::string BindError() const override { return binding_.Missing(); }

  // The vendor's exports, as C functions with the default calling convention.
  struct Table {
    int (*init_driver_7853)();
    int (*open_device)();
    int (*write_data)(unsigned char*, int);
    int (*read_data)(unsigned char*, int);
    int (*close_device)();
    int (*uninstall_driver)();
  };

 private:
  LibraryBinding<Table> binding_;
};

// The process's one instance, bound to the vendor's DLL name.
BridgeLibrary* Win32Bridge();

}  // namespace calder
