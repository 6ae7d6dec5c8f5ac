// Stand-in hid.dll: the device files' handles lead back to the simulated
// interfaces by file name.
#include <windows.h>
extern "C" {
#include <hidsdi.h>
}

#include <string>
#include <vector>

#include "sim/stand_in_violations.h"
#include "sim/touch_hid/standin_device.h"

namespace {

using calder::sim::Collection;
using calder::sim::StandInDevice;
using calder::sim::TouchDevice;

std::u16string InterfaceName(HANDLE handle) {
  wchar_t path[1024] = {};
  const DWORD length = GetFinalPathNameByHandleW(handle, path, 1024, 0);
  if (length == 0 || length >= 1024) return u"";
  const std::wstring full(path, length);
  const std::wstring name = full.substr(full.find_last_of(L'\\') + 1);
  return std::u16string(name.begin(), name.end());
}

void RecordFrame(const calder::sim::SentReport& report) {
  const std::wstring record = calder::sim::DeviceFolder() + L"frames.txt";
  HANDLE file = CreateFileW(record.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ, nullptr,
                            OPEN_ALWAYS, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return;
  const std::string line = (report.collection == Collection::kTouch ? "col04 " : "col05 ") +
                           calder::sim::HexBytes(report.bytes, report.bytes.size()) + "\n";
  DWORD written = 0;
  WriteFile(file, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
  CloseHandle(file);
}

}  // namespace

extern "C" {

void NTAPI HidD_GetHidGuid(LPGUID guid) { calder::sim::HidGuid(guid); }

BOOLEAN NTAPI HidD_GetAttributes(HANDLE handle, PHIDD_ATTRIBUTES attributes) {
  const calder::sim::HidInterface* found = StandInDevice().Find(InterfaceName(handle));
  if (found == nullptr || attributes == nullptr || attributes->Size != sizeof(HIDD_ATTRIBUTES)) {
    return FALSE;
  }
  attributes->VendorID = found->vendorId;
  attributes->ProductID = found->productId;
  attributes->VersionNumber = 0x0100;
  return TRUE;
}

BOOLEAN NTAPI HidD_SetOutputReport(HANDLE handle, PVOID report, ULONG size) {
  TouchDevice& device = StandInDevice();
  const size_t before = device.sent.size();
  const bool accepted =
      device.Receive(InterfaceName(handle), static_cast<const uint8_t*>(report), size);
  calder::sim::ReportViolations("hid");
  if (!accepted) return FALSE;
  if (device.sent.size() > before) RecordFrame(device.sent.back());
  return TRUE;
}

BOOLEAN NTAPI HidD_GetInputReport(HANDLE handle, PVOID report, ULONG size) {
  const bool answered =
      StandInDevice().Answer(InterfaceName(handle), static_cast<uint8_t*>(report), size);
  calder::sim::ReportViolations("hid");
  return answered;
}

}  // extern "C"
