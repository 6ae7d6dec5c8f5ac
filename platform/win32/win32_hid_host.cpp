#include "platform/win32/win32_hid_host.h"

#include <windows.h>
#include <hidsdi.h>
#include <setupapi.h>

#include <cstdlib>
#include <cwchar>

#include "platform/win32/library_binding.h"

namespace calder {
namespace {

// hid.dll and setupapi.dll from the system folder, one typed table each.
struct HidTable {
  decltype(&::HidD_GetHidGuid) GetHidGuid;
  decltype(&::HidD_GetAttributes) GetAttributes;
  decltype(&::HidD_SetOutputReport) SetOutputReport;
  decltype(&::HidD_GetInputReport) GetInputReport;
};

struct SetupTable {
  decltype(&::SetupDiGetClassDevsW) GetClassDevs;
  decltype(&::SetupDiEnumDeviceInterfaces) EnumDeviceInterfaces;
  decltype(&::SetupDiGetDeviceInterfaceDetailW) GetDeviceInterfaceDetail;
  decltype(&::SetupDiGetDeviceRegistryPropertyW) GetDeviceRegistryProperty;
  decltype(&::SetupDiDestroyDeviceInfoList) DestroyDeviceInfoList;
};

void FillHid(EntryPointFinder& find, HidTable* t) {
  find("HidD_GetHidGuid", &t->GetHidGuid);
  find("HidD_GetAttributes", &t->GetAttributes);
  find("HidD_SetOutputReport", &t->SetOutputReport);
  find("HidD_GetInputReport", &t->GetInputReport);
}

void FillSetup(EntryPointFinder& find, SetupTable* t) {
  find("SetupDiGetClassDevsW", &t->GetClassDevs);
  find("SetupDiEnumDeviceInterfaces", &t->EnumDeviceInterfaces);
  find("SetupDiGetDeviceInterfaceDetailW", &t->GetDeviceInterfaceDetail);
  find("SetupDiGetDeviceRegistryPropertyW", &t->GetDeviceRegistryProperty);
  find("SetupDiDestroyDeviceInfoList", &t->DestroyDeviceInfoList);
}

// Both tables, or null: without either library the machine shows no HID
// devices.
struct HidApi {
  const HidTable* hid;
  const SetupTable* setup;
};

const HidApi* Api() {
  static LibraryBinding<HidTable> hid(L"hid.dll", LibraryFolder::kSystem, &FillHid);
  static LibraryBinding<SetupTable> setup(L"setupapi.dll", LibraryFolder::kSystem, &FillSetup);
  static const HidApi api{hid.Bind(), setup.Bind()};
  return api.hid != nullptr && api.setup != nullptr ? &api : nullptr;
}

const wchar_t* Wide(const std::u16string& text) {
  return reinterpret_cast<const wchar_t*>(text.c_str());
}

constexpr DWORD kShareReadWrite = FILE_SHARE_READ | FILE_SHARE_WRITE;

// The friendly name, else the description, else the path: the platform's
// own view of the interface. Nothing reads it further.
void ReadInterfaceName(const HidApi& api, HDEVINFO info, SP_DEVINFO_DATA* device,
                       const wchar_t* path) {
  wchar_t name[256] = {};  // 512 bytes
  BYTE* buffer = reinterpret_cast<BYTE*>(name);
  const auto property = api.setup->GetDeviceRegistryProperty;
  if (property(info, device, SPDRP_FRIENDLYNAME, nullptr, buffer, sizeof name, nullptr) ||
      property(info, device, SPDRP_DEVICEDESC, nullptr, buffer, sizeof name, nullptr)) {
    return;
  }
  std::wcsncpy(name, path, 255);
}

}  // namespace

std::vector<std::u16string> Win32HidHost::InterfacePaths() {
  std::vector<std::u16string> paths;
  const HidApi* api = Api();
  if (api == nullptr) return paths;
  GUID hidGuid;
  api->hid->GetHidGuid(&hidGuid);
  HDEVINFO info =
      api->setup->GetClassDevs(&hidGuid, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  if (info == INVALID_HANDLE_VALUE) return paths;

  SP_DEVICE_INTERFACE_DATA iface = {};
  iface.cbSize = sizeof iface;
  for (DWORD index = 0; api->setup->EnumDeviceInterfaces(info, nullptr, &hidGuid, index, &iface);
       ++index) {
    DWORD required = 0;
    api->setup->GetDeviceInterfaceDetail(info, &iface, nullptr, 0, &required, nullptr);
    // A size that cannot hold the header, or no memory: skip the interface.
    if (required < sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W)) continue;
    auto* detail = static_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(std::calloc(1, required));
    if (detail == nullptr) continue;
    detail->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W);
    SP_DEVINFO_DATA device = {};
    device.cbSize = sizeof device;
    if (api->setup->GetDeviceInterfaceDetail(info, &iface, detail, required, nullptr, &device)) {
      ReadInterfaceName(*api, info, &device, detail->DevicePath);
      paths.push_back(reinterpret_cast<const char16_t*>(detail->DevicePath));
    }
    std::free(detail);
  }
  api->setup->DestroyDeviceInfoList(info);
  return paths;
}

bool Win32HidHost::ProbeAttributes(const std::u16string& path, HidAttributes* attributes) {
  const HidApi* api = Api();
  if (api == nullptr) return false;
  HANDLE file = CreateFileW(Wide(path), 0, kShareReadWrite, nullptr, OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  HIDD_ATTRIBUTES found = {};
  found.Size = sizeof found;
  const bool ok = api->hid->GetAttributes(file, &found) != FALSE;
  CloseHandle(file);
  if (!ok) return false;
  attributes->vendorId = found.VendorID;
  attributes->productId = found.ProductID;
  return true;
}

HidHandle Win32HidHost::OpenReadWrite(const std::u16string& path) {
  return CreateFileW(Wide(path), GENERIC_READ | GENERIC_WRITE, kShareReadWrite, nullptr,
                     OPEN_EXISTING, 0, nullptr);
}

bool Win32HidHost::Close(HidHandle handle) { return CloseHandle(handle) != FALSE; }

bool Win32HidHost::SetOutputReport(HidHandle handle, const uint8_t* report, size_t size) {
  const HidApi* api = Api();
  return api != nullptr && api->hid->SetOutputReport(handle, const_cast<uint8_t*>(report),
                                                     static_cast<ULONG>(size));
}

bool Win32HidHost::GetInputReport(HidHandle handle, uint8_t* report, size_t size) {
  const HidApi* api = Api();
  return api != nullptr && api->hid->GetInputReport(handle, report, static_cast<ULONG>(size));
}

HidHost* Win32Hid() {
  static Win32HidHost host;
  return &host;
}

}  // namespace calder
