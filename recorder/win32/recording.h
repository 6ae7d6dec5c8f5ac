#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/win32/checked_library.h"
#include "recorder/trace_line.h"

namespace calder::recorder {

// One recorder's run: the vendor library, checked and loaded, and the trace
// it writes. The trace file is made at the first call; when it cannot be
// made safely the calls still go through, unrecorded. When the vendor
// library is refused, the trace holds its header and one line that says
// what was refused and why.
class Recording {
 public:
  // libraryFile "btl_hid_transfer.dll", library "bridge" (the trace's name).
  Recording(const wchar_t* libraryFile, const char* library);
  ~Recording();

  // The vendor library's full path, loaded already, or empty when it (its
  // folder or a library it imports from there) is missing or refused.
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
    bool sealed = false;  // nothing more is written
  };
  static DWORD WINAPI FlushLoop(void* sink);
  void OpenTrace();

  std::wstring libraryFile_;
  std::string library_;
  std::wstring folder_;  // the recorder's own, without a trailing backslash
  std::unique_ptr<CheckedLibrary> vendor_;
  std::wstring vendorPath_;
  FileSink sink_;
  Trace trace_{sink_};
  bool opened_ = false;
};

// SHA-256 of a file as lowercase hex, empty when it cannot be read.
std::string FileSha256(const char* path);

}  // namespace calder::recorder
