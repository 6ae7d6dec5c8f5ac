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
  int64_t EnterCall();
  // Microseconds since the process started, the clock of every trace line.
  int64_t Now();
  // A path as the trace records it: relative to the recorder's folder, the
  // package's, so no trace names the recording machine's folders.
  std::string InPackage(const std::string& path) const;
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
};

}  // namespace calder::recorder
