#include "platform/win32/win32_bridge_library.h"

#include <utility>

namespace calder {

namespace {

void FillTable(EntryPointFinder& find, Win32BridgeLibrary::Table* t) {
  find(kBridgeLibraryEntryPoints[kInitDriver], &t->init_driver_7853);
  find(kBridgeLibraryEntryPoints[kOpenDevice], &t->open_device);
  find(kBridgeLibraryEntryPoints[kWriteData], &t->write_data);
  find(kBridgeLibraryEntryPoints[kReadData], &t->read_data);
  find(kBridgeLibraryEntryPoints[kCloseDevice], &t->close_device);
  find(kBridgeLibraryEntryPoints[kUninstallDriver], &t->uninstall_driver);
}

}  // namespace

Win32BridgeLibrary::Win32BridgeLibrary(std::wstring dllName)
    : binding_(std::move(dllName), LibraryFolder::kBesideExecutable, &FillTable) {}

int Win32BridgeLibrary::btl_init_driver_7853() {
  const Table* t = binding_.Bind();
  return t != nullptr ? t->init_driver_7853() : kBridgeUnavailable;
}

int Win32BridgeLibrary::btl_open_device() {
  const Table* t = binding_.Bind();
  return t != nullptr ? t->open_device() : kBridgeUnavailable;
}

int Win32BridgeLibrary::btl_write_data(unsigned char* buffer, int length) {
  const Table* t = binding_.Bind();
  return t != nullptr ? t->write_data(buffer, length) : kBridgeUnavailable;
}

int Win32BridgeLibrary::btl_read_data(unsigned char* buffer, int length) {
  const Table* t = binding_.Bind();
  return t != nullptr ? t->read_data(buffer, length) : kBridgeUnavailable;
}

int Win32BridgeLibrary::btl_close_device() {
  const Table* t = binding_.Bind();
  return t != nullptr ? t->close_device() : kBridgeUnavailable;
}

int Win32BridgeLibrary::btl_uninstall_driver() {
  const Table* t = binding_.Bind();
  return t != nullptr ? t->uninstall_driver() : kBridgeUnavailable;
}

BridgeLibrary* Win32Bridge() {
  static Win32BridgeLibrary bridge;
  return &bridge;
}

}  // namespace calder
