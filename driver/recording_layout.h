#pragma once

#include <string>

#include "platform/file_system.h"
#include "platform/process_info.h"

namespace calder {

// Whether calder.exe runs from a recording layout: both vendor library names
// beside it (the recorders) and the vendor's own two in vendor\. It only
// looks, and loads nothing. Every path must be no link and be owned by
// SYSTEM, Administrators, TrustedInstaller or this account, as the folders
// the log goes through: an administrator made the layout. Its one effect is
// the HID trace written beside the log.
bool IsRecordingLayout(FileSystem& files, const std::string& programDir);

// Where the run's HID trace is made: "<log folder>\CalderTrace_<time>_<pid>_hid.ndjson"
// once every folder from the trust root down passes the checks the log gets
// and no link stands at the name; empty when either is refused.
std::string HidTracePath(const LocalTime& time, unsigned long pid);

}  // namespace calder
