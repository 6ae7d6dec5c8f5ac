#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "platform/process_info.h"
#include "trace/trace.h"

namespace calder {

// The one writer of the format. Texts are written byte for byte: a byte past
// ASCII (the library's code page, not UTF-8) or a control byte as \u00XX, so
// the line stays valid JSON and the reader gets the same bytes back.
void AppendTraceLine(const TraceLine& line, TraceLibrary library, std::string* out);
// The first line: format, library, the vendor library's SHA-256 (null when
// empty), when, which process.
std::string FormatTraceHeader(const Trace& trace);
// The header and every line, as a recorder writes them.
std::string FormatTrace(const Trace& trace);

// Where a recorder's lines go: the trace file, or nowhere when it could not
// be made.
class TraceSink {
 public:
  virtual ~TraceSink() = default;
  virtual void Append(const std::string& text) = 0;
};

// Numbers the lines and hands each to the sink as it comes, from a buffer
// that keeps its size; lines of callbacks on another thread do not interleave
// with a call's.
class TraceWriter {
 public:
  TraceWriter(TraceSink& sink, TraceLibrary library);
  void Write(TraceLine& line);  // sets its seq

 private:
  TraceSink& sink_;
  TraceLibrary library_;
  std::mutex lock_;
  std::string text_;
  int64_t seq_ = 0;
};

// "CalderTrace_YYYY-MM-DD_hhmmss_<pid>_<library>.ndjson"
std::string TraceFileName(const LocalTime& time, unsigned long pid, const char* library);

// "2026-11-25T13:14:15+01:00"; offset in minutes east of UTC.
std::string IsoLocalTime(const LocalTime& time, int utcOffsetMinutes);

}  // namespace calder
