#pragma once

#include "platform/clock.h"
#include "platform/com_runtime.h"
#include "platform/file_system.h"
#include "platform/power.h"
#include "platform/process_info.h"

namespace calder {

class Win32Clock : public Clock {
 public:
  void Sleep(uint32_t ms) override;
  uint64_t NowMs() override;
};

class Win32FileSystem : public FileSystem {
 public:
  bool MakeFolder(const std::string& path) override;
  bool WriteNewFile(const std::string& path, const void* data, size_t size) override;
  bool RemoveFile(const std::string& path) override;
  bool ListFolder(const std::string& pattern,
                  const std::function<bool(const FolderEntry&)>& visit) override;
  PathFacts Inspect(const std::string& path) override;
};

class Win32ProcessInfo : public ProcessInfo {
 public:
  std::string ModulePathA() override;
  std::u16string ModulePathW() override;
  LocalTime Now() override;
  unsigned long ProcessId() override;
};

class Win32PowerRequests : public PowerRequests {
 public:
  PowerRequestHandle Create(const wchar_t* reason) override;
  void Set(PowerRequestHandle handle, PowerRequestType type) override;
  void Clear(PowerRequestHandle handle, PowerRequestType type) override;
  void Close(PowerRequestHandle handle) override;
};

class Win32ComRuntime : public ComRuntime {
 public:
  long InitializeMultithreaded() override;
  void Uninitialize() override;
};

// Fills the process-wide environment with the Win32 seams but progress, which
// goes to the entry's window; called once by WinMain before anything else.
void InstallWin32Environment();

}  // namespace calder
