#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "platform/process_info.h"
#include "touchpad/btl_upgrade_config.h"

namespace calder::recorder {

// One trace line as NDJSON, built field by field into a buffer that keeps its
// capacity from line to line, so a recorded call costs no allocation.
class TraceLine {
 public:
  TraceLine();
  void Clear();
  TraceLine& Int(const char* key, long long value);
  TraceLine& Bool(const char* key, bool value);
  // null when text is null.
  TraceLine& Text(const char* key, const char* text);
  TraceLine& Texts(const char* key, const std::vector<std::string>& texts);
  // Lowercase hex of size bytes; null for a null buffer, "" for size <= 0.
  TraceLine& Hex(const char* key, const void* bytes, long long size);
  // The record as the library reads it: never an address, only whether a
  // callback is set.
  TraceLine& Config(const char* key, const btl_upgrade_config* config);
  // The line with its closing brace and newline.
  const std::string& Finish();

 private:
  void Key(const char* key);
  std::string text_;
  bool objectOpen_ = true;  // the next key is its object's first
};

// Where lines go: the trace file, or nowhere when it could not be made.
class TraceSink {
 public:
  virtual ~TraceSink() = default;
  virtual void Append(const std::string& line) = 0;
};

// Numbers the lines and times them from the first call's entry; lines from
// callbacks on another thread do not interleave with a call's.
class Trace {
 public:
  explicit Trace(TraceSink& sink) : sink_(sink) {}

  // Microseconds since the first call's entry; the first call passes true.
  uint64_t Since(uint64_t nowUs, bool firstCall);

  template <typename Fill>
  void Write(uint64_t tUs, Fill fill) {
    std::lock_guard<std::mutex> hold(lock_);
    line_.Clear();
    line_.Int("seq", static_cast<long long>(++seq_)).Int("t_us", static_cast<long long>(tUs));
    fill(line_);
    sink_.Append(line_.Finish());
  }

 private:
  TraceSink& sink_;
  std::mutex lock_;
  TraceLine line_;
  uint64_t seq_ = 0;
  uint64_t startUs_ = 0;
  bool started_ = false;
};

// "CalderTrace_YYYY-MM-DD_hhmmss_<pid>_<library>.ndjson"
std::string TraceFileName(const LocalTime& time, unsigned long pid, const char* library);

// "2026-11-25T13:14:15+01:00"; offset in minutes east of UTC.
std::string IsoLocalTime(const LocalTime& time, int utcOffsetMinutes);

// The first line: format version, the vendor library and its SHA-256 (empty
// when it could not be read), when, which process, and the recorder's folder;
// a HID trace also the switch calder.exe ran with.
std::string TraceHeader(const char* libraryFile, const std::string& vendorSha256,
                        const std::string& started, unsigned long pid, const std::string& dir,
                        const std::string& run = std::string());

}  // namespace calder::recorder
