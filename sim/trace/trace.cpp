#include "sim/trace/trace.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <cstdio>
#include <map>

#include "hid/recording_hid_host.h"
#include "platform/bridge_library.h"
#include "platform/upgrade_library.h"

namespace calder::replay {

using Json = nlohmann::json;
using OrderedJson = nlohmann::ordered_json;

namespace {

constexpr int kTraceVersion = 1;
constexpr char kBridgeFile[] = "btl_hid_transfer.dll";
constexpr char kUpgradeFile[] = "btl_upgrade.dll";
constexpr char kHidFile[] = "hid.dll";

// Fields a call line carries, by entry point.
// A device path is a path without a file to hash.
enum Field : unsigned {
  kRc = 1, kIn = 2, kOut = 4, kLen = 8, kPath = 16, kConfig = 32, kDev = 64, kPaths = 128,
  kDevicePath = 256
};

constexpr int kAsLen = -1;

struct EntryFields {
  const char* fn;
  TraceLibrary library;
  unsigned fields;
  int inBytes = kAsLen;  // fixed sizes of in and out, or as len says
  int outBytes = kAsLen;
};

const EntryFields kEntries[] = {
    {kBridgeLibraryEntryPoints[kInitDriver], TraceLibrary::kBridge, kRc},
    {kBridgeLibraryEntryPoints[kOpenDevice], TraceLibrary::kBridge, kRc},
    {kBridgeLibraryEntryPoints[kWriteData], TraceLibrary::kBridge, kIn | kLen | kRc},
    {kBridgeLibraryEntryPoints[kReadData], TraceLibrary::kBridge, kOut | kLen | kRc},
    {kBridgeLibraryEntryPoints[kCloseDevice], TraceLibrary::kBridge, kRc},
    {kBridgeLibraryEntryPoints[kUninstallDriver], TraceLibrary::kBridge, kRc},
    {kUpgradeLibraryEntryPoints[kUpgradeInit], TraceLibrary::kUpgrade, kConfig | kRc},
    {kUpgradeLibraryEntryPoints[kUpgradeFromFile], TraceLibrary::kUpgrade, kPath | kRc},
    {kUpgradeLibraryEntryPoints[kGetChecksum], TraceLibrary::kUpgrade, kIn | kOut | kRc, 4, 4},
    {kUpgradeLibraryEntryPoints[kGetFirmwareVersion], TraceLibrary::kUpgrade, kIn | kOut | kRc, 1, 1},
    {kUpgradeLibraryEntryPoints[kGetChipId], TraceLibrary::kUpgrade, kIn | kOut | kRc, 1, 1},
    {kUpgradeLibraryEntryPoints[kCheckNeedUpgrade], TraceLibrary::kUpgrade,
     kPath | kIn | kOut | kRc, 4, 4},
    {kUpgradeLibraryEntryPoints[kUpgradeDeinit], TraceLibrary::kUpgrade, 0},
    {kHidInterfaces, TraceLibrary::kHid, kPaths},
    {kHidAttributes, TraceLibrary::kHid, kDevicePath | kOut | kRc, kAsLen, 4},  // vendor, product
    {kHidOpen, TraceLibrary::kHid, kDevicePath | kDev},
    {kHidClose, TraceLibrary::kHid, kDev | kRc},
    {kHidSetOutputReport, TraceLibrary::kHid, kDev | kIn | kLen | kRc},
    // Only the report id of what the buffer held goes in.
    {kHidGetInputReport, TraceLibrary::kHid, kDev | kIn | kOut | kLen | kRc, 1},
};

const EntryFields* FindEntry(const std::string& fn, TraceLibrary library) {
  for (const EntryFields& entry : kEntries) {
    if (fn == entry.fn && entry.library == library) return &entry;
  }
  return nullptr;
}

bool GetInt(const Json& j, const char* key, int64_t low, int64_t high, int64_t* value) {
  const auto found = j.find(key);
  if (found == j.end() || !found->is_number_integer()) return false;
  if (found->is_number_unsigned() && found->get<uint64_t>() > static_cast<uint64_t>(INT64_MAX)) {
    return false;
  }
  const int64_t v = found->get<int64_t>();
  if (v < low || v > high) return false;
  *value = v;
  return true;
}

// A string, or null where that is allowed: none then.
bool GetText(const Json& j, const char* key, bool nullable, std::optional<std::string>* text) {
  const auto found = j.find(key);
  if (found == j.end()) return false;
  if (found->is_null() && nullable) {
    text->reset();
    return true;
  }
  if (!found->is_string()) return false;
  *text = found->get<std::string>();
  return true;
}

bool GetTexts(const Json& j, const char* key, std::vector<std::string>* texts) {
  const auto found = j.find(key);
  if (found == j.end() || !found->is_array()) return false;
  for (const Json& text : *found) {
    if (!text.is_string()) return false;
    texts->push_back(text.get<std::string>());
  }
  return true;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool GetHex(const Json& j, const char* key, std::optional<std::vector<uint8_t>>* bytes) {
  std::optional<std::string> text;
  if (!GetText(j, key, false, &text) || text->size() % 2 != 0) return false;
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

bool GetConfig(const Json& j, TraceConfig* config) {
  const auto found = j.find("config");
  if (found == j.end() || !found->is_object()) return false;
  const Json& c = *found;
  int64_t chipId = 0;
  int64_t haveBoot = 0;
  const auto options = c.find("options");
  const auto progress = c.find("progress");
  const auto log = c.find("log");
  if (!GetText(c, "hwId", true, &config->hwId) || !GetInt(c, "chipId", 0, 255, &chipId) ||
      !GetInt(c, "haveBoot", INT32_MIN, INT32_MAX, &haveBoot) || options == c.end() ||
      !options->is_array() || progress == c.end() || !progress->is_boolean() ||
      log == c.end() || !log->is_boolean()) {
    return false;
  }
  for (const Json& word : *options) {
    if (!word.is_number_integer()) return false;
    config->options.push_back(word.get<int64_t>());
  }
  config->chipId = static_cast<int>(chipId);
  config->haveBoot = static_cast<int>(haveBoot);
  config->progress = progress->get<bool>();
  config->log = log->get<bool>();
  return true;
}

bool ParseCall(const Json& j, TraceLibrary library, TraceLine* line, std::string* what) {
  const EntryFields* entry = FindEntry(line->fn, library);
  if (entry == nullptr) {
    *what = "\"" + line->fn + "\" is no entry point of " + LibraryFile(library);
    return false;
  }
  const auto need = [&](unsigned field, const char* name, bool ok) {
    if ((entry->fields & field) != 0 && !ok && what->empty()) *what = std::string("no valid \"") + name + "\"";
  };
  int64_t rc = 0;
  need(kRc, "rc", GetInt(j, "rc", INT32_MIN, INT32_MAX, &rc));
  if ((entry->fields & kRc) != 0) line->rc = static_cast<int32_t>(rc);
  if ((entry->fields & kIn) != 0) need(kIn, "in", GetHex(j, "in", &line->in));
  if ((entry->fields & kOut) != 0) need(kOut, "out", GetHex(j, "out", &line->out));
  int64_t len = 0;
  need(kLen, "len", GetInt(j, "len", 0, INT32_MAX, &len));
  if ((entry->fields & kLen) != 0) line->len = len;
  if ((entry->fields & kPath) != 0) {
    std::optional<std::string> path;
    need(kPath, "path", GetText(j, "path", false, &path));
    line->path = path;
    need(kPath, "sha256", GetText(j, "sha256", true, &line->sha256));
  }
  if ((entry->fields & kConfig) != 0) {
    TraceConfig config;
    need(kConfig, "config", GetConfig(j, &config));
    line->config = config;
  }
  if ((entry->fields & kDevicePath) != 0) need(kDevicePath, "path", GetText(j, "path", false, &line->path));
  int64_t dev = 0;
  need(kDev, "dev", GetInt(j, "dev", 0, INT64_MAX, &dev));
  if ((entry->fields & kDev) != 0) line->dev = dev;
  if ((entry->fields & kPaths) != 0) need(kPaths, "paths", GetTexts(j, "paths", &line->paths));
  if (!what->empty()) return false;
  const struct {
    const std::optional<std::vector<uint8_t>>& bytes;
    int fixed;
  } sizes[] = {{line->in, entry->inBytes}, {line->out, entry->outBytes}};
  for (const auto& [bytes, fixed] : sizes) {
    // A fixed size for a length of 0 or less is no bytes, as the writer gives it.
    const int64_t want = fixed == kAsLen ? len : (line->len && len <= 0 ? 0 : fixed);
    if (bytes.has_value() && static_cast<int64_t>(bytes->size()) != want) {
      *what = "its bytes do not match its length";
      return false;
    }
  }
  return true;
}

bool ParseCallback(const Json& j, TraceLine* line, std::string* what) {
  int64_t value = 0;
  const char* key = line->cb == "progress" ? "value" : "level";
  if (line->cb != "progress" && line->cb != "log") {
    *what = "\"" + line->cb + "\" is no callback";
  } else if (!GetInt(j, key, INT32_MIN, INT32_MAX, &value)) {
    *what = std::string("no valid \"") + key + "\"";
  } else if (!GetText(j, "text", true, &line->text)) {
    *what = "no valid \"text\"";
  }
  line->value = static_cast<int32_t>(value);
  return what->empty();
}

bool ParseLine(const Json& j, TraceLibrary library, TraceLine* line, std::string* what) {
  int64_t seq = 0;
  int64_t tUs = 0;
  if (!j.is_object()) {
    *what = "not a JSON object";
  } else if (!GetInt(j, "seq", 1, INT64_MAX, &seq) || !GetInt(j, "t_us", 0, INT64_MAX, &tUs)) {
    *what = "no valid \"seq\" and \"t_us\"";
  } else if (j.contains("fn") && j["fn"].is_string()) {
    line->fn = j["fn"].get<std::string>();
    if (line->fn.empty()) *what = "an empty \"fn\"";
  } else if (j.contains("cb") && j["cb"].is_string() && library == TraceLibrary::kUpgrade) {
    line->cb = j["cb"].get<std::string>();
  } else {
    *what = "neither a call nor a callback";
  }
  if (!what->empty()) return false;
  line->seq = seq;
  line->tUs = tUs;
  return line->isCall() ? ParseCall(j, library, line, what) : ParseCallback(j, line, what);
}

bool ParseHeader(const Json& j, Trace* trace, std::string* what) {
  int64_t version = 0;
  std::optional<std::string> library;
  std::optional<std::string> dir;
  if (!j.is_object() || !GetInt(j, "calder_trace", INT64_MIN, INT64_MAX, &version)) {
    *what = "the first line is not a trace header";
  } else if (version != kTraceVersion) {
    *what = "trace format " + std::to_string(version) + " is not the one this reads (" +
            std::to_string(kTraceVersion) + ")";
  } else if (!GetText(j, "library", false, &library) ||
             (*library != kBridgeFile && *library != kUpgradeFile && *library != kHidFile)) {
    *what = "the header names no library this replays";
  } else if (!GetText(j, "dir", false, &dir)) {
    *what = "the header has no \"dir\"";
  } else if (j.contains("run") && !j["run"].is_string()) {
    *what = "the header's \"run\" is no text";
  }
  if (!what->empty()) return false;
  trace->library = *library == kBridgeFile    ? TraceLibrary::kBridge
                   : *library == kUpgradeFile ? TraceLibrary::kUpgrade
                                              : TraceLibrary::kHid;
  trace->dir = *dir;
  if (j.contains("run")) trace->run = j["run"].get<std::string>();
  std::optional<std::string> sha;
  if (GetText(j, "vendor_sha256", false, &sha)) trace->vendorSha256 = *sha;
  return true;
}

}  // namespace

const char* LibraryFile(TraceLibrary library) {
  return library == TraceLibrary::kBridge ? kBridgeFile : library == TraceLibrary::kUpgrade ? kUpgradeFile : kHidFile;
}

bool TraceConfig::operator==(const TraceConfig& o) const {
  return hwId == o.hwId && chipId == o.chipId && haveBoot == o.haveBoot && options == o.options &&
         progress == o.progress && log == o.log;
}

size_t Trace::CallCount() const {
  size_t calls = 0;
  for (const TraceLine& line : lines) calls += line.isCall() ? 1 : 0;
  return calls;
}

bool Trace::Complete() const {
  if (cut) return false;
  // HID traffic has no session to end: it is whole once every open is closed.
  if (library == TraceLibrary::kHid) {
    std::map<int64_t, bool> open;
    for (const TraceLine& line : lines) {
      if (line.fn == kHidOpen && line.dev.value_or(0) > 0) open[*line.dev] = true;
      if (line.fn == kHidClose && line.rc.value_or(0) != 0) open.erase(line.dev.value_or(0));
    }
    return open.empty();
  }
  for (auto it = lines.rbegin(); it != lines.rend(); ++it) {
    if (!it->isCall()) continue;
    if (library == TraceLibrary::kBridge) return it->fn == kBridgeLibraryEntryPoints[kUninstallDriver];
    return it->fn == kUpgradeLibraryEntryPoints[kUpgradeDeinit] ||
           (it->fn == kUpgradeLibraryEntryPoints[kUpgradeInit] && it->rc.value_or(0) != 0);
  }
  return false;
}

bool ParseTrace(const std::string& text, const std::string& name, Trace* trace,
                std::string* error) {
  *trace = Trace();
  trace->name = name;
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
  const bool endsWithNewline = !text.empty() && text.back() == '\n';
  if (rows.empty()) {
    *error = name + ": empty file, no trace";
    return false;
  }
  for (size_t i = 0; i < rows.size(); ++i) {
    const Json j = Json::parse(rows[i], nullptr, false);
    const std::string where = name + " line " + std::to_string(i + 1) + ": ";
    if (j.is_discarded()) {
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

std::string HexText(const std::vector<uint8_t>& bytes) {
  static const char kDigits[] = "0123456789abcdef";
  std::string out;
  for (uint8_t b : bytes) {
    out += kDigits[b >> 4];
    out += kDigits[b & 15];
  }
  return out;
}

std::string FormatTrace(const Trace& trace) {
  OrderedJson header;
  header["calder_trace"] = kTraceVersion;
  header["library"] = LibraryFile(trace.library);
  header["vendor_sha256"] = trace.vendorSha256;
  header["dir"] = trace.dir;
  if (trace.library == TraceLibrary::kHid) header["run"] = trace.run;
  std::string out = header.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
  for (const TraceLine& line : trace.lines) {
    OrderedJson j;
    j["seq"] = line.seq;
    j["t_us"] = line.tUs;
    if (!line.isCall()) {
      j["cb"] = line.cb;
      j[line.cb == "progress" ? "value" : "level"] = line.value;
      j["text"] = line.text ? OrderedJson(*line.text) : OrderedJson(nullptr);
      out += j.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
      continue;
    }
    j["fn"] = line.fn;
    if (!line.paths.empty() || line.fn == kHidInterfaces) j["paths"] = line.paths;
    if (line.dev) j["dev"] = *line.dev;
    if (line.config) {
      OrderedJson c;
      c["hwId"] = line.config->hwId ? OrderedJson(*line.config->hwId) : OrderedJson(nullptr);
      c["chipId"] = line.config->chipId;
      c["haveBoot"] = line.config->haveBoot;
      c["options"] = line.config->options;
      c["progress"] = line.config->progress;
      c["log"] = line.config->log;
      j["config"] = c;
    }
    if (line.path) {
      j["path"] = *line.path;
      if (trace.library != TraceLibrary::kHid) {
        j["sha256"] = line.sha256 ? OrderedJson(*line.sha256) : OrderedJson(nullptr);
      }
    }
    if (line.in) j["in"] = HexText(*line.in);
    if (line.out) j["out"] = HexText(*line.out);
    if (line.len) j["len"] = *line.len;
    if (line.rc) j["rc"] = *line.rc;
    out += j.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
  }
  return out;
}

}  // namespace calder::replay
