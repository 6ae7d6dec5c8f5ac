#include "sim/touch_hid/standin_device.h"

#include <windows.h>

#include <cstdio>
#include <sstream>

namespace calder::sim {
namespace {

std::string Variable(const char* name) {
  char value[256] = {};
  const DWORD length = GetEnvironmentVariableA(name, value, sizeof value);
  return length > 0 && length < sizeof value ? std::string(value, length) : std::string();
}

void ParseVersion(const std::string& text, std::array<uint8_t, 4>* version) {
  unsigned a, b, c, d;
  if (std::sscanf(text.c_str(), "%u.%u.%u.%u", &a, &b, &c, &d) == 4) {
    *version = {static_cast<uint8_t>(a), static_cast<uint8_t>(b), static_cast<uint8_t>(c),
                static_cast<uint8_t>(d)};
  }
}

TouchDevice* MakeDevice() {
  static SteadyClock clock;
  static TouchDevice device(clock, u"");
  ParseVersion(Variable("CALDER_SIM_TOUCH_VERSION"), &device.touchVersion);
  ParseVersion(Variable("CALDER_SIM_FORCE_VERSION"), &device.forceVersion);
  if (HasFault("no-col04")) device.RemoveCollection(u"col04");
  if (HasFault("no-col05")) device.RemoveCollection(u"col05");
  if (HasFault("never-ready")) device.neverReady = {0xBE};
  if (HasFault("zero-sum")) device.calibration = {0, 0, 0, 0, 0, 0, 0};
  if (HasFault("wrong-touch")) device.touchAnswer = {0x06, 0x00, 0x00, 1, 2, 3, 4};
  if (HasFault("zero-force")) device.forceVersion = {0, 0, 0, 0};
  return &device;
}

}  // namespace

TouchDevice& StandInDevice() {
  static TouchDevice* device = MakeDevice();
  return *device;
}

bool HasFault(const char* name) {
  std::stringstream faults(Variable("CALDER_SIM_HID_FAULTS"));
  std::string fault;
  while (std::getline(faults, fault, ',')) {
    if (fault == name) return true;
  }
  return false;
}

void HidGuid(GUID* guid) {
  *guid = {0x4D1E55B2, 0xF16F, 0x11CF, {0x88, 0xCB, 0x00, 0x11, 0x11, 0x00, 0x00, 0x30}};
}

std::wstring DeviceFolder() {
  // Beside the program under test, not beside this DLL: the stand-in may be
  // placed in the system folder.
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring folder(path);
  folder.resize(folder.find_last_of(L'\\') + 1);
  return folder + L"devices\\";
}

}  // namespace calder::sim
