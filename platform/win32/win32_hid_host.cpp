#include "platform/win32/win32_hid_host.h"

#include <windows.h>
#include <hidsdi.h>
#include <setupapi.h>

#include <cstdlib>
#include <cwchar>

#include "platform/win32/library_loading.h"

namespace calder {
namespace {

// Both DLLs through one typed table, bound all or nothing.
struct HidApi {
  decltype(&::HidD_GetHidGuid) GetHidGuid = nullptr;
  decltype(&::HidD_GetAttributes) GetAttributes = nullptr;
  decltype(&::HidD_SetOutputReport) SetOutputReport = nullptr;
  decltype(&::HidD_GetInputReport) GetInputReport = nullptr;
  decltype(&::SetupDiGetClassDevsW) GetClassDevs = nullptr;
  decltype(&::SetupDiEnumDeviceInterfaces) EnumDeviceInterfaces = nullptr;
  decltype(&::SetupDiGetDeviceInterfaceDetailW) GetDeviceInterfaceDetail = nullptr;
  decltype(&::SetupDiGetDeviceRegistryPropertyW) GetDeviceRegistryProperty = nullptr;
  decltype(&::SetupDiDestroyDeviceInfoList) DestroyDeviceInfoList = nullptr;
};

template <typename Fn>
bool Bind(HMODULE module, const char* name, Fn* fn) {
  *fn = reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(module, name)));
  return *fn != nullptr;
}

const HidApi* LoadHidApi() {
  HMODULE hid = LoadSystemLibrary(L"hid.dll");
  HMODULE setup = LoadSystemLibrary(L"setupapi.dll");
  HidApi api;
  const bool bound =
      hid != nullptr && setup != nullptr && Bind(hid, "HidD_GetHidGuid", &api.GetHidGuid) &&
      Bind(hid, "HidD_GetAttributes", &api.GetAttributes) &&
      Bind(hid, "HidD_SetOutputReport", &api.SetOutputReport) &&
      Bind(hid, "HidD_GetInputReport", &api.GetInputReport) &&
      Bind(setup, "SetupDiGetClassDevsW", &api.GetClassDevs) &&
      Bind(setup, "SetupDiEnumDeviceInterfaces", &api.EnumDeviceInterfaces) &&
      Bind(setup, "SetupDiGetDeviceInterfaceDetailW", &api.GetDeviceInterfaceDetail) &&
      Bind(setup, "SetupDiGetDeviceRegistryPropertyW", &api.GetDeviceRegistryProperty) &&
      Bind(setup, "SetupDiDestroyDeviceInfoList", &api.DestroyDeviceInfoList);
  if (!bound) {
    if (hid != nullptr) FreeLibrary(hid);
    if (setup != nullptr) FreeLibrary(setup);
    return nullptr;
  }
  static const HidApi loaded = api;
  return &loaded;
}

const HidApi* Api() {
  static const HidApi* api = LoadHidApi();
  return api;
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
  if (api.GetDeviceRegistryProperty(info, device, SPDRP_FRIENDLYNAME, nullptr, buffer,
                                    sizeof name, nullptr) ||
      api.GetDeviceRegistryProperty(info, device, SPDRP_DEVICEDESC, nullptr, buffer, sizeof name,
                                    nullptr)) {
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
  api->GetHidGuid(&hidGuid);
  HDEVINFO info =
      api->GetClassDevs(&hidGuid, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  if (info == INVALID_HANDLE_VALUE) return paths;

  SP_DEVICE_INTERFACE_DATA iface = {};
  iface.cbSize = sizeof iface;
  for (DWORD index = 0; api->EnumDeviceInterfaces(info, nullptr, &hidGuid, index, &iface);
       ++index) {
    DWORD required = 0;
    api->GetDeviceInterfaceDetail(info, &iface, nullptr, 0, &required, nullptr);
    // A size that cannot hold the header, or no memory: skip the interface.
    if (required < sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W)) continue;
    auto* detail = static_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(std::calloc(1, required));
    if (detail == nullptr) continue;
    detail->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W);
    SP_DEVINFO_DATA device = {};
    device.cbSize = sizeof device;
    if (api->GetDeviceInterfaceDetail(info, &iface, detail, required, nullptr, &device)) {
      ReadInterfaceName(*api, info, &device, detail->DevicePath);
      paths.push_back(reinterpret_cast<const char16_t*>(detail->DevicePath));
    }
    std::free(detail);
  }
  api->DestroyDeviceInfoList(info);
  return paths;
}

bool Win32HidHost::ProbeAttributes(const std::u16string& path, HidAttributes* attributes) {
  const HidApi* api = Api();
  if (api == nullptr) return false;
  HANDLE file = CreateFileW(Wide(path), 0, kShareReadWrite, nullptr, OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  HIDD_ATTRIBUTES found = {};
  found.Size = sizeof found;
  const bool ok = api->GetAttributes(file, &found) != FALSE;
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
  return api != nullptr &&
         api->SetOutputReport(handle, const_cast<uint8_t*>(report), static_cast<ULONG>(size));
}

bool Win32HidHost::GetInputReport(HidHandle handle, uint8_t* report, size_t size) {
  const HidApi* api = Api();
  return api != nullptr && api->GetInputReport(handle, report, static_cast<ULONG>(size));
}

HidHost* Win32Hid() {
  static Win32HidHost host;
  return &host;
}

}  // namespace calder
