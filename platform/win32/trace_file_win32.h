#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "trace/trace_writer.h"

namespace calder {

// A trace file made new, never through a link. Each line reaches the file
// when it is appended, where a process that dies keeps it, and the disk
// every 100 ms from a thread of its own, so no call waits for the disk.
class Win32TraceFile : public TraceSink {
 public:
  // Null when anything stands at the name already (a file, a link) or the
  // file cannot be made. The file lives until the process ends: its
  // flushing thread keeps using it.
  static Win32TraceFile* CreateNew(const std::string& path);

  void Append(const std::string& line) override;

 private:
  explicit Win32TraceFile(void* file) : file_(file) {}
  static unsigned long __stdcall FlushLoop(void* self);

  void* file_;
  std::atomic<long> lines_{0};
};

// The local time's offset from UTC, in minutes east, for a trace's header.
int UtcOffsetMinutes();

}  // namespace calder
