#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/win32/checked_library.h"
#include "trace/trace_writer.h"

namespace calder::recorder {

// One recorder's run: the vendor library, checked and loaded, and the trace
// it writes. The trace file is made at the first call; when it cannot be
// made safely the calls still go through, unrecorded. When the vendor
// library is refused, the trace holds its header and one line that says
// what was refused and why.
class Recording {
 public:
  Recording(const wchar_t* libraryFile, TraceLibrary library);
  ~Recording();

  // The vendor library's full path, loaded already, or empty when it (its
  // folder or a library it imports from there) is missing or refused.
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
    bool sealed = false;  // nothing more is written
  };
  static DWORD WINAPI FlushLoop(void* sink);
  void OpenTrace();

  std::wstring libraryFile_;
  TraceLibrary library_;
  std::wstring folder_;  // the recorder's own, without a trailing backslash
  std::unique_ptr<CheckedLibrary> vendor_;
  std::wstring vendorPath_;
  FileSink sink_;
  TraceWriter writer_{sink_, library_};
  bool opened_ = false;
};

}  // namespace calder::recorder
