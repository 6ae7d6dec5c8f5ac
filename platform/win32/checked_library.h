#pragma once

#include <windows.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/win32/trusted_file.h"

namespace calder {

// A library loaded from a folder that only administrators may change, with
// the libraries it imports that the folder holds. The folder and each file
// are checked on a handle held open, shared for reading only, until loaded
// (HeldFile). Imports the folder holds are loaded first, by full path,
// dependencies before dependents; every library is loaded with the system
// folder as its only search place, so any other import comes from there.
class CheckedLibrary {
 public:
  // The folder "<parent>\<folderName>" and the file in it.
  CheckedLibrary(const std::wstring& parent, const std::wstring& folderName,
                 const std::wstring& file);
  CheckedLibrary(const CheckedLibrary&) = delete;
  CheckedLibrary& operator=(const CheckedLibrary&) = delete;

  bool loaded() const { return refused_.empty(); }
  // The library's full path: a later load by that path gets module() again.
  const std::wstring& path() const { return path_; }
  HMODULE module() const { return module_; }
  // What was not loaded and why: "vendor\dep.dll" or "vendor\", and a
  // reason in words; empty when loaded.
  const std::string& refused() const { return refused_; }
  const std::string& why() const { return why_; }
  // The library's bytes as checked, empty when it could not be read.
  const std::string& bytes() const { return bytes_; }

 private:
  // Checks name and, first, what it imports from the folder; false once
  // anything is refused.
  bool Visit(const std::string& name, bool root);
  bool Refuse(const std::string& what, const std::string& why);

  std::wstring folder_;
  std::string folderName_;
  std::wstring path_;
  HMODULE module_ = nullptr;
  std::string refused_;
  std::string why_;
  std::string bytes_;
  std::vector<std::unique_ptr<HeldFile>> held_;
  std::vector<std::string> visited_;  // lower case
  std::vector<std::string> loadOrder_;
};

}  // namespace calder
