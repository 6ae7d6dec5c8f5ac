#include "trace/trace_reader.h"

#include <cstdio>

#include "trace/json_value.h"

namespace calder {
namespace {

using Kind = JsonValue::Kind;

bool GetInt(const JsonValue& j, const char* key, int64_t low, int64_t high, int64_t* value) {
  const JsonValue* found = j.Find(key);
  if (found == nullptr || found->kind != Kind::kInt) return false;
  if (found->integer < low || found->integer > high) return false;
  *value = found->integer;
  return true;
}

// A string, or null: none then.
bool GetText(const JsonValue& j, const char* key, std::optional<std::string>* text) {
  const JsonValue* found = j.Find(key);
  if (found == nullptr) return false;
  if (found->kind == Kind::kNull) {
    text->reset();
    return true;
  }
  if (found->kind != Kind::kString) return false;
  *text = found->text;
  return true;
}

bool GetTexts(const JsonValue& j, const char* key, std::vector<std::string>* texts) {
  const JsonValue* found = j.Find(key);
  if (found == nullptr || found->kind != Kind::kArray) return false;
  for (const JsonValue& text : found->items) {
    if (text.kind != Kind::kString) return false;
    texts->push_back(text.text);
  }
  return true;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Hex bytes, or null: none then.
bool GetHex(const JsonValue& j, const char* key, std::optional<std::vector<uint8_t>>* bytes) {
  std::optional<std::string> text;
  if (!GetText(j, key, &text)) return false;
  bytes->reset();
  if (!text) return true;
  if (text->size() % 2 != 0) return false;
  std::vector<uint8_t> out;
  for (size_t i = 0; i < text->size(); i += 2) {
    const int high = HexDigit((*text)[i]);
    const int low = HexDigit((*text)[i + 1]);
    if (high < 0 || low < 0) return false;
    out.push_back(static_cast<uint8_t>(high << 4 | low));
  }
  *bytes = std::move(out);
  return true;
}

bool GetBool(const JsonValue& j, const char* key, bool* value) {
  const JsonValue* found = j.Find(key);
  if (found == nullptr || found->kind != Kind::kBool) return false;
  *value = found->boolean;
  return true;
}

// The record, or null: none then.
bool GetConfig(const JsonValue& j, std::optional<TraceConfig>* config) {
  const JsonValue* c = j.Find("config");
  if (c == nullptr) return false;
  config->reset();
  if (c->kind == Kind::kNull) return true;
  if (c->kind != Kind::kObject) return false;
  TraceConfig record;
  int64_t chipId = 0;
  int64_t haveBoot = 0;
  const JsonValue* options = c->Find("options");
  if (!GetText(*c, "hwId", &record.hwId) || !GetInt(*c, "chipId", 0, 255, &chipId) ||
      !GetInt(*c, "haveBoot", INT32_MIN, INT32_MAX, &haveBoot) || options == nullptr ||
      options->kind != Kind::kArray || !GetBool(*c, "progress", &record.progress) ||
      !GetBool(*c, "log", &record.log)) {
    return false;
  }
  for (const JsonValue& word : options->items) {
    if (word.kind != Kind::kInt) return false;
    record.options.push_back(word.integer);
  }
  record.chipId = static_cast<int>(chipId);
  record.haveBoot = static_cast<int>(haveBoot);
  *config = std::move(record);
  return true;
}

bool ParseCall(const JsonValue& j, TraceLibrary library, TraceLine* line, std::string* what) {
  const TraceEntry* entry = FindTraceEntry(line->fn, library);
  if (entry == nullptr) {
    *what = "\"" + line->fn + "\" is no entry point of " + LibraryFile(library);
    return false;
  }
  const auto need = [&](unsigned field, const char* name, bool ok) {
    if ((entry->fields & field) != 0 && !ok && what->empty()) *what = std::string("no valid \"") + name + "\"";
  };
  const unsigned fields = entry->fields;
  int64_t rc = 0;
  int64_t len = 0;
  if ((fields & kFieldRc) != 0) {
    need(kFieldRc, "rc", GetInt(j, "rc", INT32_MIN, INT32_MAX, &rc));
    line->rc = static_cast<int32_t>(rc);
  }
  if ((fields & kFieldIn) != 0) need(kFieldIn, "in", GetHex(j, "in", &line->in));
  if ((fields & kFieldOut) != 0) need(kFieldOut, "out", GetHex(j, "out", &line->out));
  if ((fields & kFieldLen) != 0) {
    need(kFieldLen, "len", GetInt(j, "len", INT32_MIN, INT32_MAX, &len));
    line->len = len;
  }
  if ((fields & kFieldPath) != 0) {
    need(kFieldPath, "path", GetText(j, "path", &line->path));
    need(kFieldPath, "sha256", GetText(j, "sha256", &line->sha256));
  }
  if ((fields & kFieldConfig) != 0) need(kFieldConfig, "config", GetConfig(j, &line->config));
  if ((fields & kFieldDevicePath) != 0) need(kFieldDevicePath, "path", GetText(j, "path", &line->path));
  int64_t number = 0;
  if ((fields & kFieldDev) != 0) {
    need(kFieldDev, "dev", GetInt(j, "dev", 0, INT64_MAX, &number));
    line->dev = number;
  }
  if ((fields & kFieldReportId) != 0) {
    need(kFieldReportId, "id", GetInt(j, "id", 0, 255, &number));
    line->reportId = number;
  }
  if ((fields & kFieldPaths) != 0) need(kFieldPaths, "paths", GetTexts(j, "paths", &line->paths));
  if (!what->empty()) return false;
  // A length of 0 or less carries "".
  const size_t want = entry->bytes != 0 ? entry->bytes : len > 0 ? static_cast<size_t>(len) : 0;
  for (const auto* bytes : {&line->in, &line->out}) {
    if (bytes->has_value() && (*bytes)->size() != want) {
      *what = "its bytes do not match its length";
      return false;
    }
  }
  return true;
}

bool ParseCallback(const JsonValue& j, TraceLine* line, std::string* what) {
  int64_t value = 0;
  const char* key = line->cb == "progress" ? "value" : "level";
  if (line->cb != "progress" && line->cb != "log") {
    *what = "\"" + line->cb + "\" is no callback";
  } else if (!GetInt(j, key, INT32_MIN, INT32_MAX, &value)) {
    *what = std::string("no valid \"") + key + "\"";
  } else if (!GetText(j, "text", &line->text)) {
    *what = "no valid \"text\"";
  }
  line->value = static_cast<int32_t>(value);
  return what->empty();
}

bool ParseRefusal(const JsonValue& j, TraceLine* line, std::string* what) {
  std::optional<std::string> why;
  if (!GetText(j, "refused", &line->refused) || !line->refused || !GetText(j, "why", &why) || !why) {
    *what = "a refusal without \"refused\" and \"why\"";
    return false;
  }
  line->why = *why;
  return true;
}

bool ParseLine(const JsonValue& j, TraceLibrary library, TraceLine* line, std::string* what) {
  int64_t seq = 0;
  int64_t tUs = 0;
  int64_t retUs = 0;
  const JsonValue* fn = j.Find("fn");
  const JsonValue* cb = j.Find("cb");
  if (j.kind != Kind::kObject) {
    *what = "not a JSON object";
  } else if (!GetInt(j, "seq", 1, INT64_MAX, &seq) || !GetInt(j, "t_us", 0, INT64_MAX, &tUs)) {
    *what = "no valid \"seq\" and \"t_us\"";
  } else if (j.Find("ret_us") != nullptr && !GetInt(j, "ret_us", tUs, INT64_MAX, &retUs)) {
    *what = "no valid \"ret_us\"";
  } else if (fn != nullptr && fn->kind == Kind::kString) {
    line->fn = fn->text;
    if (line->fn.empty()) *what = "an empty \"fn\"";
  } else if (cb != nullptr && cb->kind == Kind::kString && library == TraceLibrary::kUpgrade) {
    line->cb = cb->text;
    if (line->cb.empty()) *what = "an empty \"cb\"";
  } else if (j.Find("refused") == nullptr) {
    *what = "neither a call, a callback nor a refusal";
  }
  if (!what->empty()) return false;
  line->seq = seq;
  line->tUs = tUs;
  if (j.Find("ret_us") != nullptr) line->retUs = retUs;
  if (line->isCall() && !line->retUs) {
    *what = "no valid \"ret_us\"";
    return false;
  }
  if (line->isCall()) return ParseCall(j, library, line, what);
  if (line->isCallback()) return ParseCallback(j, line, what);
  return ParseRefusal(j, line, what);
}

bool ParseHeader(const JsonValue& j, Trace* trace, std::string* what) {
  int64_t version = 0;
  std::optional<std::string> library;
  if (j.kind != Kind::kObject || !GetInt(j, "calder_trace", INT64_MIN, INT64_MAX, &version)) {
    *what = "the first line is not a trace header";
  } else if (version != kTraceFormat) {
    *what = "trace format " + std::to_string(version) + " is not the one this reads (" +
            std::to_string(kTraceFormat) + ")";
  } else if (!GetText(j, "library", &library) || !library || !LibraryOfFile(*library, &trace->library)) {
    *what = "the header names no library this replays";
  }
  if (!what->empty()) return false;
  std::optional<std::string> text;
  if (GetText(j, "vendor_sha256", &text) && text) trace->vendorSha256 = *text;
  if (GetText(j, "started", &text) && text) trace->started = *text;
  if (GetText(j, "run", &text) && text) trace->run = *text;
  GetInt(j, "pid", INT64_MIN, INT64_MAX, &trace->pid);
  return true;
}

std::vector<std::string> Rows(const std::string& text) {
  std::vector<std::string> rows;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    std::string row = text.substr(start, end - start);
    if (!row.empty() && row.back() == '\r') row.pop_back();
    rows.push_back(std::move(row));
    start = end + 1;
  }
  return rows;
}

}  // namespace

bool ParseTrace(const std::string& text, const std::string& name, Trace* trace, std::string* error) {
  *trace = Trace();
  trace->name = name;
  const std::vector<std::string> rows = Rows(text);
  const bool endsWithNewline = !text.empty() && text.back() == '\n';
  if (rows.empty()) {
    *error = name + ": empty file, no trace";
    return false;
  }
  for (size_t i = 0; i < rows.size(); ++i) {
    JsonValue j;
    const bool parsed = ParseJson(rows[i], &j);
    const std::string where = name + " line " + std::to_string(i + 1) + ": ";
    if (!parsed) {
      if (i + 1 == rows.size() && !endsWithNewline && i > 0) {
        trace->cut = true;
        trace->notes.push_back(where + "cut off mid-way; dropped");
        break;
      }
      *error = where + "not JSON";
      return false;
    }
    std::string what;
    if (i == 0) {
      if (!ParseHeader(j, trace, &what)) {
        *error = where + what;
        return false;
      }
      continue;
    }
    TraceLine line;
    if (!ParseLine(j, trace->library, &line, &what)) {
      *error = where + what;
      return false;
    }
    if (line.seq != static_cast<int64_t>(trace->lines.size()) + 1) {
      *error = where + "seq " + std::to_string(line.seq) + " where " +
               std::to_string(trace->lines.size() + 1) + " belongs: lines are missing or repeated";
      return false;
    }
    trace->lines.push_back(std::move(line));
  }
  return true;
}

bool ReadTraceFile(const std::string& path, Trace* trace, std::string* error) {
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) {
    *error = path + ": cannot be read";
    return false;
  }
  std::string text;
  char chunk[65536];
  size_t got = 0;
  while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0) text.append(chunk, got);
  const bool failed = std::ferror(file) != 0;
  std::fclose(file);
  if (failed) {
    *error = path + ": cannot be read";
    return false;
  }
  return ParseTrace(text, path, trace, error);
}

}  // namespace calder
