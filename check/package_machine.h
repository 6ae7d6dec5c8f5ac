#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform/file_system.h"
#include "platform/process_info.h"

namespace calder::check {

// The package folder as the program sees it from calder.exe: the module path
// is "<moduleDir>\calder.exe", folder searches under moduleDir are answered
// from the real package folder in NTFS name order, and nothing is written.
class PackageMachine : public FileSystem, public ProcessInfo {
 public:
  PackageMachine(std::filesystem::path packageDir, std::string moduleDir);

  bool MakeFolder(const std::string&) override { return true; }
  bool WriteNewFile(const std::string&, const void*, size_t) override { return true; }
  bool RemoveFile(const std::string&) override { return true; }
  bool ListFolder(const std::string& pattern,
                  const std::function<bool(const FolderEntry&)>& visit) override;
  // The service folders of a laptop as installed: there, plain and the
  // administrators', so the predicted run logs as a real one does.
  PathFacts Inspect(const std::string&) override {
    return {true, false, PathOwner::kSystemOrAdministrators};
  }

  std::string ModulePathA() override { return moduleDir_ + "\\calder.exe"; }
  std::u16string ModulePathW() override;
  LocalTime Now() override { return {}; }
  unsigned long ProcessId() override { return 0; }

  const std::string& moduleDir() const { return moduleDir_; }
  // The real file behind a path the program built under moduleDir.
  std::filesystem::path RealPath(const std::string& programPath) const;
  // Names of the non-folder entries of "<moduleDir><subfolder>", in order.
  std::vector<std::string> RegularFiles(const std::string& subfolder);

 private:
  std::filesystem::path packageDir_;
  std::string moduleDir_;
};

// A package folder as calder.exe would see it from the laptop. The program
// builds its paths with "\"; where that is not the separator, the firmware
// files are linked under the names the program opens: "<stage>/pkg\TP\<name>"
// is then one file in a stage folder of our own, removed with the object.
class StagedPackage {
 public:
  explicit StagedPackage(const std::filesystem::path& packageDir);
  ~StagedPackage();
  StagedPackage(const StagedPackage&) = delete;
  StagedPackage& operator=(const StagedPackage&) = delete;

  PackageMachine& machine() { return *machine_; }

 private:
  std::filesystem::path stage_;
  std::unique_ptr<PackageMachine> machine_;
};

// NTFS keeps a folder's names in upper-case order; the program's "first
// file" is the first one in that order.
bool NtfsNameLess(const std::string& a, const std::string& b);
// How Windows matches a file name.
bool SameNameIgnoringCase(const std::string& a, const std::string& b);

}  // namespace calder::check
