// The trace reader and the decoder on arbitrary text. Properties: no crash
// or undefined behaviour, a refused text says why, and a trace it reads is
// written back as text that reads to the same trace.

#include <cstddef>
#include <cstdint>
#include <string>

#include "sim/trace/trace_decoder.h"
#include "trace/trace_reader.h"
#include "trace/trace_writer.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

void Check(bool ok, const char* what) { calder::fuzz::Check(ok, "trace_reader_fuzz", what); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  calder::Trace trace;
  std::string error;
  if (!calder::ParseTrace(text, "fuzz", &trace, &error)) {
    Check(!error.empty(), "a refused trace gives its reason");
    return 0;
  }
  calder::replay::TraceDecoder decoder(trace.library);
  for (const auto& line : trace.lines) calder::replay::DecodedRow(line, decoder.Decode(line));
  const std::string written = calder::FormatTrace(trace);
  calder::Trace again;
  Check(calder::ParseTrace(written, "fuzz", &again, &error), "a written trace reads back");
  Check(calder::FormatTrace(again) == written, "a written trace reads back the same");
  return 0;
}
