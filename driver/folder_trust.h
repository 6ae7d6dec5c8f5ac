#pragma once

#include <string>

#include "platform/file_system.h"

namespace calder {

// Whether the elevated program may write or delete through a folder chain.
// Ordinary users can create folders under ProgramData, so a folder there is
// trusted only when no link stands in its place and an administrator owns it.
struct TrustVerdict {
  bool trusted = true;
  std::string path;    // the first refused folder or file
  std::string reason;  // why, in words for the log
};

// The one folder (or file) itself: present, not a reparse point, owned by
// SYSTEM, Administrators, TrustedInstaller or the account the program runs
// as (an administrator already; a service runs as SYSTEM).
TrustVerdict CheckFolder(FileSystem& files, const std::string& path);

// Whether path is root itself or lies below it.
bool IsAtOrUnder(const std::string& root, const std::string& path);

// Every folder from root down to folder, both included. A folder outside
// root is refused: the chain it hangs from is unknown.
TrustVerdict CheckFolderChain(FileSystem& files, const std::string& root,
                              const std::string& folder);

// The file about to be written or deleted: absent, or a plain file. A link
// standing there is neither followed nor removed.
TrustVerdict CheckFileTarget(FileSystem& files, const std::string& path);

}  // namespace calder
