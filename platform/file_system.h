#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace calder {

struct FolderEntry {
  std::string name;
  bool isDirectory = false;
};

// Narrow (local code page) file calls; results the callers ignore are still
// returned so the adapters stay plain translations.
class FileSystem {
 public:
  virtual ~FileSystem() = default;
  virtual bool MakeFolder(const std::string& path) = 0;
  // Opens for writing with no sharing, truncating or creating, then writes,
  // flushes and closes. False when the file could not be opened.
  virtual bool WriteNewFile(const std::string& path, const void* data, size_t size) = 0;
  virtual bool RemoveFile(const std::string& path) = 0;
  // Visits entries matching a FindFirstFile pattern in enumeration order
  // until the visitor returns false. False when the search found nothing.
  virtual bool ListFolder(const std::string& pattern,
                          const std::function<bool(const FolderEntry&)>& visit) = 0;
};

}  // namespace calder
