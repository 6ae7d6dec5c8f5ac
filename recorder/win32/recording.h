#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "recorder/trace_line.h"

namespace calder::recorder {

// One recorder's run: where the vendor library is, and the trace it writes.
// The trace file is made at the first call; when it cannot be made safely the
// calls still go through, unrecorded.
class Recording {
 public:
  // libraryFile "btl_hid_transfer.dll", library "bridge" (the trace's name).
  Recording(const wchar_t* libraryFile, const char* library);
  ~Recording();

  // The vendor library's full path, or empty when its folder beside the
  // recorder is missing or may not be trusted.
  const std::wstring& VendorPath() const { return vendorPath_; }
  // t_us of a call entering now; the first call opens the trace.
  uint64_t EnterCall();
  // t_us now, for a callback.
  uint64_t Now();
  Trace& trace() { return trace_; }

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
  std::string library_;
  std::wstring folder_;  // the recorder's own, without a trailing backslash
  std::wstring vendorPath_;
  FileSink sink_;
  Trace trace_{sink_};
  bool opened_ = false;
};

// SHA-256 of a file as lowercase hex, empty when it cannot be read.
std::string FileSha256(const std::wstring& path);
std::string FileSha256(const char* path);

}  // namespace calder::recorder
