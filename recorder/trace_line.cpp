#include "recorder/trace_line.h"

#include <cstdio>

namespace calder::recorder {
namespace {

constexpr char kHexDigits[] = "0123456789abcdef";
// Room for the longest bridge frame and reply without growing.
constexpr size_t kLineCapacity = 1024;

void AppendEscaped(std::string& out, const char* text) {
  out += '"';
  for (const char* p = text; *p != '\0'; ++p) {
    const unsigned char c = static_cast<unsigned char>(*p);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c < 0x20 || c >= 0x80) {
      // Bytes past ASCII are the library's code page, not UTF-8: kept as
      // code points so the line stays valid JSON.
      out += "\\u00";
      out += kHexDigits[c >> 4];
      out += kHexDigits[c & 0xF];
    } else {
      out += static_cast<char>(c);
    }
  }
  out += '"';
}

}  // namespace

TraceLine::TraceLine() { text_.reserve(kLineCapacity); }

void TraceLine::Clear() {
  text_.clear();
  objectOpen_ = true;
}

void TraceLine::Key(const char* key) {
  text_ += objectOpen_ ? '{' : ',';
  objectOpen_ = false;
  text_ += '"';
  text_ += key;
  text_ += "\":";
}

TraceLine& TraceLine::Int(const char* key, long long value) {
  Key(key);
  char digits[24];
  std::snprintf(digits, sizeof digits, "%lld", value);
  text_ += digits;
  return *this;
}

TraceLine& TraceLine::Bool(const char* key, bool value) {
  Key(key);
  text_ += value ? "true" : "false";
  return *this;
}

TraceLine& TraceLine::Text(const char* key, const char* text) {
  Key(key);
  if (text == nullptr) {
    text_ += "null";
  } else {
    AppendEscaped(text_, text);
  }
  return *this;
}

TraceLine& TraceLine::Texts(const char* key, const std::vector<std::string>& texts) {
  Key(key);
  text_ += '[';
  for (size_t i = 0; i < texts.size(); ++i) {
    if (i > 0) text_ += ',';
    AppendEscaped(text_, texts[i].c_str());
  }
  text_ += ']';
  return *this;
}

TraceLine& TraceLine::Hex(const char* key, const void* bytes, long long size) {
  Key(key);
  if (bytes == nullptr) {
    text_ += "null";
    return *this;
  }
  text_ += '"';
  const unsigned char* p = static_cast<const unsigned char*>(bytes);
  for (long long i = 0; i < size; ++i) {
    text_ += kHexDigits[p[i] >> 4];
    text_ += kHexDigits[p[i] & 0xF];
  }
  text_ += '"';
  return *this;
}

TraceLine& TraceLine::Config(const char* key, const btl_upgrade_config* config) {
  Key(key);
  if (config == nullptr) {
    text_ += "null";
    return *this;
  }
  objectOpen_ = true;
  Text("hwId", config->hwId).Int("chipId", config->chipId).Int("haveBoot", config->haveBoot);
  text_ += ",\"options\":[" + std::to_string(config->option1) + "," +
           std::to_string(config->option2) + "," + std::to_string(config->option3) + "]";
  Bool("progress", config->progress != nullptr).Bool("log", config->log != nullptr);
  text_ += '}';
  return *this;
}

const std::string& TraceLine::Finish() {
  text_ += objectOpen_ ? "{}\n" : "}\n";
  return text_;
}

uint64_t Trace::Since(uint64_t nowUs, bool firstCall) {
  std::lock_guard<std::mutex> hold(lock_);
  if (firstCall && !started_) {
    started_ = true;
    startUs_ = nowUs;
  }
  return started_ && nowUs >= startUs_ ? nowUs - startUs_ : 0;
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

std::string TraceHeader(const char* libraryFile, const std::string& vendorSha256,
                        const std::string& started, unsigned long pid, const std::string& dir,
                        const std::string& run) {
  TraceLine line;
  line.Int("calder_trace", 1).Text("library", libraryFile);
  line.Text("vendor_sha256", vendorSha256.empty() ? nullptr : vendorSha256.c_str());
  line.Text("started", started.c_str()).Int("pid", static_cast<long long>(pid));
  line.Text("dir", dir.c_str());
  if (!run.empty()) line.Text("run", run.c_str());
  return line.Finish();
}

}  // namespace calder::recorder
