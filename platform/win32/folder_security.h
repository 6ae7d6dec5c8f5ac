#pragma once

#include <windows.h>

#include <string>

#include "platform/file_system.h"

namespace calder {

// CreateDirectoryA with a protected ACL: full control for SYSTEM and
// Administrators, read for everyone else, nothing inherited from the parent.
bool CreateProtectedFolder(const std::string& path);

// The path itself, opened without following a link: whether it exists, is a
// reparse point, and which kind of account owns it.
PathFacts InspectPath(const std::string& path);

// NT SERVICE\TrustedInstaller, which owns the system's own files.
bool IsTrustedInstaller(PSID sid);
// The account this process runs as.
bool IsRunningAccount(PSID sid);

}  // namespace calder
