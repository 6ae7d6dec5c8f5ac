#include "platform/win32/win32_bridge_library.h"

#include <windows.h>

#include <utility>

#include "platform/win32/library_loading.h"

namespace calder {

// The vendor's exports, as C functions with the default calling convention.
struct Win32BridgeLibrary::Table {
  int (*init_driver_7853)() = nullptr;
  int (*open_device)() = nullptr;
  int (*write_data)(unsigned char*, int) = nullptr;
  int (*read_data)(unsigned char*, int) = nullptr;
  int (*close_device)() = nullptr;
  int (*uninstall_driver)() = nullptr;
};

namespace {

template <typename Fn>
bool Bind(HMODULE module, const char* name, Fn* fn, std::string* missing) {
  *fn = reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(module, name)));
  if (*fn == nullptr && missing->empty()) *missing = name;
  return *fn != nullptr;
}

}  // namespace

Win32BridgeLibrary::Win32BridgeLibrary(std::wstring dllName) : dllName_(std::move(dllName)) {}

Win32BridgeLibrary::~Win32BridgeLibrary() {
  delete table_;
  if (module_ != nullptr) FreeLibrary(static_cast<HMODULE>(module_));
}

const Win32BridgeLibrary::Table* Win32BridgeLibrary::Bound() {
  if (tried_) return table_;
  tried_ = true;
  HMODULE module = LoadBesideExecutable(dllName_);
  if (module == nullptr) {
    reason_ = LibraryFileName(dllName_) + " could not be loaded, error " + std::to_string(GetLastError());
    return nullptr;
  }
  Table table;
  std::string missing;
  Bind(module, kBridgeLibraryEntryPoints[kInitDriver], &table.init_driver_7853, &missing);
  Bind(module, kBridgeLibraryEntryPoints[kOpenDevice], &table.open_device, &missing);
  Bind(module, kBridgeLibraryEntryPoints[kWriteData], &table.write_data, &missing);
  Bind(module, kBridgeLibraryEntryPoints[kReadData], &table.read_data, &missing);
  Bind(module, kBridgeLibraryEntryPoints[kCloseDevice], &table.close_device, &missing);
  Bind(module, kBridgeLibraryEntryPoints[kUninstallDriver], &table.uninstall_driver, &missing);
  if (!missing.empty()) {
    reason_ = LibraryFileName(dllName_) + " has no entry point " + missing;
    FreeLibrary(module);
    return nullptr;
  }
  module_ = module;
  table_ = new Table(table);
  return table_;
}

int Win32BridgeLibrary::btl_init_driver_7853() {
  const Table* t = Bound();
  return t != nullptr ? t->init_driver_7853() : kBridgeUnavailable;
}

int Win32BridgeLibrary::btl_open_device() {
  const Table* t = Bound();
  return t != nullptr ? t->open_device() : kBridgeUnavailable;
}

int Win32BridgeLibrary::btl_write_data(unsigned char* buffer, int length) {
  const Table* t = Bound();
  return t != nullptr ? t->write_data(buffer, length) : kBridgeUnavailable;
}

int Win32BridgeLibrary::btl_read_data(unsigned char* buffer, int length) {
  const Table* t = Bound();
  return t != nullptr ? t->read_data(buffer, length) : kBridgeUnavailable;
}

int Win32BridgeLibrary::btl_close_device() {
  const Table* t = Bound();
  return t != nullptr ? t->close_device() : kBridgeUnavailable;
}

int Win32BridgeLibrary::btl_uninstall_driver() {
  const Table* t = Bound();
  return t != nullptr ? t->uninstall_driver() : kBridgeUnavailable;
}

BridgeLibrary* Win32Bridge() {
  static Win32BridgeLibrary bridge;
  return &bridge;
}

std::string Win32BridgeLibrary::UnavailableReason() {
  Bound();
  return reason_;
}

}  // namespace calder
