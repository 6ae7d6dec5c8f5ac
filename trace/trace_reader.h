#pragma once

#include <string>

#include "trace/trace.h"

namespace calder {

// Reads NDJSON trace text. False with a message naming the line when the
// text is no trace: an empty text, a header that is not ours, a line before
// the last that is not JSON, a seq that skips or repeats (lines lost), an
// unknown entry point, a field missing or of the wrong kind, bad hex. A last
// line cut mid-way (no newline after it) is dropped with a note.
bool ParseTrace(const std::string& text, const std::string& name, Trace* trace, std::string* error);
bool ReadTraceFile(const std::string& path, Trace* trace, std::string* error);

}  // namespace calder
