#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace calder {

struct FolderEntry {
  std::string name;
  bool isDirectory = false;
};

// Who owns a file or folder, as far as the program's trust goes.
enum class PathOwner {
  kSystemOrAdministrators,  // SYSTEM, Administrators or TrustedInstaller
  kRunningAccount,          // the account this process runs as
  kOther,
  kUnreadable,
};

// What a path is in itself: a link standing there is looked at, not followed.
struct PathFacts {
  bool exists = false;
  bool isReparsePoint = false;  // junction, symbolic link or mount point
  PathOwner owner = PathOwner::kUnreadable;
};

// Narrow (local code page) file calls; results the callers ignore are still
// returned so the adapters stay plain translations.
class FileSystem {
 public:
  virtual ~FileSystem() = default;
  // A folder it creates gets a protected ACL: full control for SYSTEM and
  // Administrators, read for everyone else, nothing inherited.
  virtual bool MakeFolder(const std::string& path) = 0;
  // Opens for writing with no sharing, truncating or creating, then writes,
  // flushes and closes. False when the file could not be opened.
  virtual bool WriteNewFile(const std::string& path, const void* data, size_t size) = 0;
  virtual bool RemoveFile(const std::string& path) = 0;
  // Visits entries matching a FindFirstFile pattern in enumeration order
  // until the visitor returns false. False when the search found nothing.
  virtual bool ListFolder(const std::string& pattern,
                          const std::function<bool(const FolderEntry&)>& visit) = 0;
  virtual PathFacts Inspect(const std::string& path) = 0;
};

}  // namespace calder
