#pragma once

#include <string>

#include "sim/trace/hid_trace_decoder.h"
#include "trace/trace.h"

namespace calder::replay {

// Reads trace lines as the protocol does: bridge frames by name (restart,
// boot-hold, connect, erase, write, read, run, touch-off, touch-on, version)
// with address, block and length, a reply by its meaning for the command it
// answers, and the upgrade library's calls with their results and
// callbacks, and HID traffic as hid_trace_decoder.h does. It follows the exchange, so lines go in in trace order.
class TraceDecoder {
 public:
  explicit TraceDecoder(TraceLibrary library) : library_(library) {}
  std::string Decode(const TraceLine& line);

 private:
  std::string DecodeWrite(const TraceLine& line);
  std::string DecodeRead(const TraceLine& line);

  TraceLibrary library_;
  HidTraceDecoder hid_;
  enum class Pending { kNone, kConnect, kErase, kWrite, kRead, kVersion };
  Pending pending_ = Pending::kNone;
  uint32_t pendingAddress_ = 0;
};

// "  12.345 ms  #7     <decoded>": a line of --decode.
std::string DecodedRow(const TraceLine& line, const std::string& decoded);

}  // namespace calder::replay
