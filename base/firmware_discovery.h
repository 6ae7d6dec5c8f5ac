#pragma once

#include <string>

namespace calder {

extern const char kTouchpadFirmwareFolder[];  // "\TP"
extern const char kForceFirmwareFolder[];     // "\Force"

// The executable's folder without a trailing separator.
std::string GetModuleDir();
// Full path of the first regular file in the folder, or "" when there is none.
std::string FindFirstFileInFolder(const std::string& folder);
// File name without its folder and without its last extension.
std::string GetFileStem(const std::string& path);

// Pure pieces, shared by the functions above.
std::string DirectoryOf(const std::string& path);
std::string FolderSearchPattern(const std::string& folder);
std::string JoinFolderAndName(const std::string& folder, const std::string& name);

}  // namespace calder
