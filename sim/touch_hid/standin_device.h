#pragma once

#include <windows.h>

#include <string>

#include "sim/touch_device.h"

namespace calder::sim {

// The touch device both stand-ins show, set up from the environment:
//   CALDER_SIM_HID_FAULTS   comma-separated: no-col04, no-col05, busy-col05
//                           (probes but is held elsewhere), never-ready (the
//                           calibration status), zero-sum, wrong-touch,
//                           zero-force
//   CALDER_SIM_TOUCH_VERSION, CALDER_SIM_FORCE_VERSION   "a.b.c.d"
// Device paths are files in the "devices" folder beside the DLL, named after
// the interfaces; hid.dll appends each output report it accepts to
// devices\frames.txt ("col05 0D 09 FE ...").
TouchDevice& StandInDevice();

bool HasFault(const char* name);

// {4D1E55B2-F16F-11CF-88CB-001111000030}
void HidGuid(GUID* guid);

// "<folder of the running program>\devices\"
std::wstring DeviceFolder();

}  // namespace calder::sim
