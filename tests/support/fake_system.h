#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/com_runtime.h"
#include "platform/environment.h"
#include "platform/file_system.h"
#include "platform/power.h"
#include "platform/process_info.h"
#include "platform/progress.h"

namespace calder::test {

// An in-memory machine: folders and files by path, the module path, the
// power request and COM calls, all recorded in order.
class FakeSystem : public FileSystem,
                   public ProcessInfo,
                   public PowerRequests,
                   public ComRuntime,
                   public ProgressPoster {
 public:
  // FileSystem
  bool MakeFolder(const std::string& path) override;
  bool WriteNewFile(const std::string& path, const void* data, size_t size) override;
  bool RemoveFile(const std::string& path) override;
  bool ListFolder(const std::string& pattern,
                  const std::function<bool(const FolderEntry&)>& visit) override;
  // A known folder or file is plain and administrator-owned unless oddPaths
  // says otherwise.
  PathFacts Inspect(const std::string& path) override;
  // ProcessInfo
  std::string ModulePathA() override { return modulePathA; }
  std::u16string ModulePathW() override { return modulePathW; }
  LocalTime Now() override { return now; }
  unsigned long ProcessId() override { return pid; }
  // PowerRequests
  PowerRequestHandle Create(const wchar_t* reason) override;
  void Set(PowerRequestHandle handle, PowerRequestType type) override;
  void Clear(PowerRequestHandle handle, PowerRequestType type) override;
  void Close(PowerRequestHandle handle) override;
  // ComRuntime
  long InitializeMultithreaded() override;
  void Uninitialize() override;
  // ProgressPoster
  void Post(int percent) override { posts.push_back(percent); }

  // Fills the seams this object plays into an environment.
  void Into(Environment* env);
  void AddFile(const std::string& path, const std::string& content = "x");
  void AddFolder(const std::string& path);
  bool HasFile(const std::string& path) const { return files.count(path) != 0; }

  std::string modulePathA = "C:\\Tools\\Calder\\calder.exe";
  std::u16string modulePathW = u"C:\\Tools\\Calder\\calder.exe";
  LocalTime now{2026, 4, 22, 9, 30, 15};
  unsigned long pid = 4812;

  PowerRequestHandle powerHandle = reinterpret_cast<PowerRequestHandle>(0x42);
  long comResult = 0;

  std::map<std::string, std::string> files;
  std::map<std::string, PathFacts> oddPaths;  // links, foreign owners
  std::vector<std::string> folders;       // in creation order
  std::vector<std::string> createdDirs;   // every CreateDirectory call
  std::vector<std::string> calls;         // power and COM calls in order
  std::vector<int> posts;
};

}  // namespace calder::test
