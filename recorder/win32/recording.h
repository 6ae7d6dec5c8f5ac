#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "trace/trace_writer.h"

namespace calder::recorder {

// One recorder's run: where the vendor library is, and the trace it writes.
// The trace file is made at the first call; when it cannot be made safely the
// calls still go through, unrecorded.
class Recording {
 public:
  Recording(const wchar_t* libraryFile, TraceLibrary library);
  ~Recording();

  // The vendor library's full path, or empty when its folder beside the
  // recorder is missing or may not be trusted.
  const std::wstring& VendorPath() const { return vendorPath_; }
  // t_us of a call entering now; the first call opens the trace.
  uint64_t EnterCall();
  // t_us now, for a callback.
  uint64_t Now();
  // Numbers the line and writes it to the trace.
  void Write(TraceLine& line) { writer_.Write(line); }

 private:
  class FileSink : public TraceSink {
   public:
    void Append(const std::string& line) override;
    HANDLE file = INVALID_HANDLE_VALUE;
    std::atomic<long> lines{0};
  };
  static DWORD WINAPI FlushLoop(void* sink);
  void OpenTrace();

  std::wstring libraryFile_;
  TraceLibrary library_;
  std::wstring folder_;  // the recorder's own, without a trailing backslash
  std::wstring vendorPath_;
  FileSink sink_;
  TraceWriter writer_{sink_, library_};
  bool opened_ = false;
  std::mutex clockLock_;
  uint64_t startUs_ = 0;
  bool started_ = false;
};

}  // namespace calder::recorder
