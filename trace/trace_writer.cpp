#include "trace/trace_writer.h"

#include <cstdio>

namespace calder {
namespace {

constexpr char kHexDigits[] = "0123456789abcdef";
// Room for the longest bridge frame and reply without growing.
constexpr size_t kLineCapacity = 1024;

// Builds one JSON object field by field.
class LineText {
 public:
  explicit LineText(std::string* out) : out_(*out) {}
  void End() { out_ += open_ ? "{}" : "}"; }

  LineText& Int(const char* key, int64_t value) {
    Key(key);
    char digits[24];
    std::snprintf(digits, sizeof digits, "%lld", static_cast<long long>(value));
    out_ += digits;
    return *this;
  }
  LineText& Bool(const char* key, bool value) {
    Key(key);
    out_ += value ? "true" : "false";
    return *this;
  }
  LineText& Text(const char* key, const std::optional<std::string>& text) {
    Key(key);
    if (!text) {
      out_ += "null";
      return *this;
    }
    out_ += '"';
    for (const char byte : *text) Escaped(static_cast<unsigned char>(byte));
    out_ += '"';
    return *this;
  }
  LineText& Texts(const char* key, const std::vector<std::string>& texts) {
    Key(key);
    out_ += '[';
    for (size_t i = 0; i < texts.size(); ++i) {
      if (i > 0) out_ += ',';
      out_ += '"';
      for (const char byte : texts[i]) Escaped(static_cast<unsigned char>(byte));
      out_ += '"';
    }
    out_ += ']';
    return *this;
  }
  LineText& Hex(const char* key, const std::optional<std::vector<uint8_t>>& bytes) {
    Key(key);
    if (!bytes) {
      out_ += "null";
      return *this;
    }
    out_ += '"';
    for (const uint8_t b : *bytes) {
      out_ += kHexDigits[b >> 4];
      out_ += kHexDigits[b & 0xF];
    }
    out_ += '"';
    return *this;
  }
  LineText& Config(const char* key, const std::optional<TraceConfig>& config) {
    Key(key);
    if (!config) {
      out_ += "null";
      return *this;
    }
    LineText record(&out_);
    record.Text("hwId", config->hwId).Int("chipId", config->chipId).Int("haveBoot", config->haveBoot);
    record.Key("options");
    out_ += '[';
    for (size_t i = 0; i < config->options.size(); ++i) {
      out_ += (i == 0 ? "" : ",") + std::to_string(config->options[i]);
    }
    out_ += ']';
    record.Bool("progress", config->progress).Bool("log", config->log).End();
    return *this;
  }

 private:
  void Key(const char* key) {
    out_ += open_ ? '{' : ',';
    open_ = false;
    out_ += '"';
    out_ += key;
    out_ += "\":";
  }
  void Escaped(unsigned char c) {
    if (c == '"' || c == '\\') {
      out_ += '\\';
      out_ += static_cast<char>(c);
    } else if (c == '\n') {
      out_ += "\\n";
    } else if (c == '\r') {
      out_ += "\\r";
    } else if (c == '\t') {
      out_ += "\\t";
    } else if (c < 0x20 || c >= 0x7F) {
      out_ += "\\u00";
      out_ += kHexDigits[c >> 4];
      out_ += kHexDigits[c & 0xF];
    } else {
      out_ += static_cast<char>(c);
    }
  }

  std::string& out_;
  bool open_ = true;  // the next key is the object's first
};

// The fields a call line carries: its entry point's, or for a name the
// format does not know, those it has.
unsigned CallFields(const TraceLine& line, TraceLibrary library) {
  if (const TraceEntry* entry = FindTraceEntry(line.fn, library)) return entry->fields;
  return (line.rc ? kFieldRc : 0) | (line.in ? kFieldIn : 0) | (line.out ? kFieldOut : 0) |
         (line.len ? kFieldLen : 0) | (line.path ? kFieldPath : 0) | (line.config ? kFieldConfig : 0);
}

}  // namespace

void AppendTraceLine(const TraceLine& line, TraceLibrary library, std::string* out) {
  LineText text(out);
  text.Int("seq", line.seq).Int("t_us", line.tUs);
  if (line.retUs) text.Int("ret_us", *line.retUs);
  if (line.refused) {
    text.Text("refused", line.refused).Text("why", line.why);
  } else if (line.isCallback()) {
    text.Text("cb", line.cb).Int(line.cb == "progress" ? "value" : "level", line.value);
    text.Text("text", line.text);
  } else {
    const unsigned fields = CallFields(line, library);
    text.Text("fn", line.fn);
    if ((fields & kFieldConfig) != 0) text.Config("config", line.config);
    if ((fields & kFieldPaths) != 0) text.Texts("paths", line.paths);
    if ((fields & kFieldDevicePath) != 0) text.Text("path", line.path);
    if ((fields & kFieldDev) != 0) text.Int("dev", line.dev.value_or(0));
    if ((fields & kFieldReportId) != 0) text.Int("id", line.reportId.value_or(0));
    if ((fields & kFieldPath) != 0) text.Text("path", line.path).Text("sha256", line.sha256);
    if ((fields & kFieldIn) != 0) text.Hex("in", line.in);
    if ((fields & kFieldOut) != 0) text.Hex("out", line.out);
    if ((fields & kFieldLen) != 0) text.Int("len", line.len.value_or(0));
    if ((fields & kFieldRc) != 0) text.Int("rc", line.rc.value_or(0));
  }
  text.End();
  *out += '\n';
}

std::string FormatTraceHeader(const Trace& trace) {
  std::string out;
  LineText text(&out);
  text.Int("calder_trace", kTraceFormat).Text("library", std::string(LibraryFile(trace.library)));
  text.Text("vendor_sha256", trace.vendorSha256.empty() ? std::nullopt
                                                        : std::optional<std::string>(trace.vendorSha256));
  text.Text("started", trace.started).Int("pid", trace.pid);
  if (!trace.run.empty()) text.Text("run", trace.run);
  text.End();
  return out + "\n";
}

std::string FormatTrace(const Trace& trace) {
  std::string out = FormatTraceHeader(trace);
  for (const TraceLine& line : trace.lines) AppendTraceLine(line, trace.library, &out);
  return out;
}

TraceWriter::TraceWriter(TraceSink& sink, TraceLibrary library) : sink_(sink), library_(library) {
  text_.reserve(kLineCapacity);
}

void TraceWriter::Write(TraceLine& line) {
  std::lock_guard<std::mutex> hold(lock_);
  line.seq = ++seq_;
  text_.clear();
  AppendTraceLine(line, library_, &text_);
  sink_.Append(text_);
}

std::string TraceFileName(const LocalTime& t, unsigned long pid, const char* library) {
  char name[96];
  std::snprintf(name, sizeof name, "CalderTrace_%04d-%02d-%02d_%02d%02d%02d_%lu_%s.ndjson", t.year,
                t.month, t.day, t.hour, t.minute, t.second, pid, library);
  return name;
}

std::string IsoLocalTime(const LocalTime& t, int utcOffsetMinutes) {
  const int offset = utcOffsetMinutes < 0 ? -utcOffsetMinutes : utcOffsetMinutes;
  char text[40];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d%c%02d:%02d", t.year, t.month,
                t.day, t.hour, t.minute, t.second, utcOffsetMinutes < 0 ? '-' : '+', offset / 60,
                offset % 60);
  return text;
}

}  // namespace calder
