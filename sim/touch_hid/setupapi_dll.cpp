// Stand-in setupapi.dll: lists the simulated device's interfaces as files in
// the devices folder, creating them on the first enumeration.
#define _SETUPAPI_
#include <windows.h>
#include <setupapi.h>

#include <cstddef>
#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

#include "sim/touch_hid/standin_device.h"

namespace {

using calder::sim::Collection;
using calder::sim::DeviceFolder;
using calder::sim::StandInDevice;

struct DeviceList {
  std::vector<std::wstring> paths;
  std::vector<Collection> collections;
};

HANDLE g_heldElsewhere = INVALID_HANDLE_VALUE;

void CreateDeviceFiles(const DeviceList& list) {
  CreateDirectoryW(DeviceFolder().c_str(), nullptr);
  for (size_t i = 0; i < list.paths.size(); ++i) {
    HANDLE file = CreateFileW(list.paths[i].c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                              nullptr, OPEN_ALWAYS, 0, nullptr);
    if (file != INVALID_HANDLE_VALUE) CloseHandle(file);
    // Held without write sharing: a query-only open still works, a
    // read-write one fails.
    if (calder::sim::HasFault("busy-col05") && list.collections[i] == Collection::kForce &&
        g_heldElsewhere == INVALID_HANDLE_VALUE) {
      g_heldElsewhere = CreateFileW(list.paths[i].c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                    OPEN_EXISTING, 0, nullptr);
    }
  }
}

bool ValidList(HDEVINFO info) { return info != nullptr && info != INVALID_HANDLE_VALUE; }

DeviceList* ListOf(HDEVINFO info) { return static_cast<DeviceList*>(info); }

}  // namespace

extern "C" {

HDEVINFO WINAPI SetupDiGetClassDevsW(const GUID* guid, PCWSTR, HWND, DWORD flags) {
  GUID hid;
  calder::sim::HidGuid(&hid);
  if (guid == nullptr || !IsEqualGUID(*guid, hid) ||
      flags != (DIGCF_PRESENT | DIGCF_DEVICEINTERFACE)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return INVALID_HANDLE_VALUE;
  }
  auto* list = new DeviceList;
  const std::wstring folder = DeviceFolder();
  for (const calder::sim::HidInterface& i : StandInDevice().interfaces) {
    list->paths.push_back(folder + reinterpret_cast<const wchar_t*>(i.name.c_str()));
    list->collections.push_back(i.collection);
  }
  CreateDeviceFiles(*list);
  return list;
}

BOOL WINAPI SetupDiEnumDeviceInterfaces(HDEVINFO info, PSP_DEVINFO_DATA, const GUID* guid,
                                        DWORD index, PSP_DEVICE_INTERFACE_DATA data) {
  if (!ValidList(info) || guid == nullptr || data == nullptr ||
      data->cbSize != sizeof(SP_DEVICE_INTERFACE_DATA)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  if (index >= ListOf(info)->paths.size()) {
    SetLastError(ERROR_NO_MORE_ITEMS);
    return FALSE;
  }
  data->InterfaceClassGuid = *guid;
  data->Flags = SPINT_ACTIVE;
  data->Reserved = index;
  return TRUE;
}

BOOL WINAPI SetupDiGetDeviceInterfaceDetailW(HDEVINFO info, PSP_DEVICE_INTERFACE_DATA data,
                                             PSP_DEVICE_INTERFACE_DETAIL_DATA_W detail,
                                             DWORD size, PDWORD required,
                                             PSP_DEVINFO_DATA device) {
  if (!ValidList(info) || data == nullptr || data->Reserved >= ListOf(info)->paths.size()) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  const std::wstring& path = ListOf(info)->paths[data->Reserved];
  const DWORD needed =
      offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_W, DevicePath) + (path.size() + 1) * sizeof(wchar_t);
  if (required != nullptr) *required = needed;
  if (detail == nullptr || size < needed) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return FALSE;
  }
  if (detail->cbSize != sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W)) {
    SetLastError(ERROR_INVALID_USER_BUFFER);
    return FALSE;
  }
  if (device != nullptr) {
    if (device->cbSize != sizeof(SP_DEVINFO_DATA)) {
      SetLastError(ERROR_INVALID_USER_BUFFER);
      return FALSE;
    }
    device->DevInst = data->Reserved + 1;
    device->Reserved = data->Reserved;
  }
  std::wmemcpy(detail->DevicePath, path.c_str(), path.size() + 1);
  return TRUE;
}

// Collections have no friendly name and only the other devices a
// description, like the platform's HID class.
BOOL WINAPI SetupDiGetDeviceRegistryPropertyW(HDEVINFO info, PSP_DEVINFO_DATA device,
                                              DWORD property, PDWORD type, PBYTE buffer,
                                              DWORD size, PDWORD required) {
  if (!ValidList(info) || device == nullptr || device->Reserved >= ListOf(info)->paths.size()) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  const wchar_t description[] = L"HID-compliant device";
  if (property != SPDRP_DEVICEDESC || ListOf(info)->collections[device->Reserved] != Collection::kOther) {
    SetLastError(ERROR_INVALID_DATA);
    return FALSE;
  }
  if (required != nullptr) *required = sizeof description;
  if (buffer == nullptr || size < sizeof description) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return FALSE;
  }
  if (type != nullptr) *type = REG_SZ;
  std::memcpy(buffer, description, sizeof description);
  return TRUE;
}

BOOL WINAPI SetupDiDestroyDeviceInfoList(HDEVINFO info) {
  if (!ValidList(info)) return FALSE;
  delete ListOf(info);
  return TRUE;
}

}  // extern "C"
