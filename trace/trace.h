#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace calder {

// The trace format, the one type every writer and reader of a trace shares
// (docs/TRACE.md): the recorders, calder.exe and calder-replay.
constexpr int kTraceFormat = 2;

// Which library a trace recorded, or calder.exe's own HID traffic (kHid).
enum class TraceLibrary { kBridge, kUpgrade, kHid };

const char* LibraryFile(TraceLibrary library);  // "btl_hid_transfer.dll", ..., "hid.dll"
const char* LibraryName(TraceLibrary library);  // "bridge", as in the file's name
// The library a header names, false for one no trace records.
bool LibraryOfFile(const std::string& file, TraceLibrary* library);

// The fields a call line carries, by entry point.
constexpr unsigned kFieldRc = 1;
constexpr unsigned kFieldIn = 2;
constexpr unsigned kFieldOut = 4;
constexpr unsigned kFieldLen = 8;
constexpr unsigned kFieldPath = 16;  // with its "sha256"
constexpr unsigned kFieldConfig = 32;
constexpr unsigned kFieldDev = 64;          // a HID handle, as the number of its open
constexpr unsigned kFieldReportId = 128;    // "id", the report id an input report asks for
constexpr unsigned kFieldPaths = 256;       // the HID interfaces listed
constexpr unsigned kFieldDevicePath = 512;  // "path" of a device: nothing to hash

struct TraceEntry {
  const char* fn;
  TraceLibrary library;
  unsigned fields;
  size_t bytes;  // the fixed size of in and out; 0: as "len" says
};

// Null for a name that is no entry point of the library.
const TraceEntry* FindTraceEntry(const std::string& fn, TraceLibrary library);

// The configuration record of btl_upgrade_init as recorded: never an
// address, only whether each callback was set.
struct TraceConfig {
  std::optional<std::string> hwId;  // none: a null pointer
  int chipId = 0;
  int haveBoot = 0;
  std::vector<int64_t> options;
  bool progress = false;
  bool log = false;
  bool operator==(const TraceConfig& o) const;
  bool operator!=(const TraceConfig& o) const { return !(*this == o); }
};

// One line after the header: a call (fn set), a callback (cb set) or the
// recorder's refusal to load the vendor library (refused set). Texts are
// bytes as the program or library passed them.
struct TraceLine {
  int64_t seq = 0;
  int64_t tUs = 0;                // the call's entry, the callback's moment
  std::optional<int64_t> retUs;   // the call's return

  std::string fn;
  std::string cb;  // "progress" or "log"
  std::optional<std::vector<uint8_t>> in;   // none: a null buffer
  std::optional<std::vector<uint8_t>> out;  // none: a null buffer
  std::optional<int64_t> len;
  std::optional<int32_t> rc;
  std::optional<std::string> path;    // none: a null pointer
  std::optional<std::string> sha256;  // none: the file was unreadable
  std::optional<TraceConfig> config;  // none: a null record
  int32_t value = 0;                  // callback: percent or level
  std::optional<std::string> text;    // callback: none for a null text
  std::optional<int64_t> dev;
  std::optional<int64_t> reportId;
  std::vector<std::string> paths;
  std::optional<std::string> refused;  // what the recorder refused
  std::string why;
  bool isCall() const { return !fn.empty(); }
  bool isCallback() const { return !cb.empty(); }
};

struct Trace {
  std::string name;  // the file, for messages
  TraceLibrary library = TraceLibrary::kBridge;
  std::string vendorSha256;  // empty: the recorder could not read it
  std::string started;
  int64_t pid = 0;
  std::string run;  // a HID trace's: the switch calder.exe ran with
  std::vector<TraceLine> lines;
  bool cut = false;  // the last line was cut mid-way and dropped
  std::vector<std::string> notes;

  // The recording ended with the library's session, or for HID traffic with
  // every handle it opened closed: nothing could follow.
  bool Complete() const;
  size_t CallCount() const;
  // The recorder's refusal line, null when it loaded the vendor library.
  const TraceLine* Refusal() const;
};

std::string HexText(const std::vector<uint8_t>& bytes);

// A call as a recorder or player starts its line.
TraceLine CallLine(const char* fn);
// A C text as a line holds it: none for a null pointer.
std::optional<std::string> TextOf(const char* text);
// How a path reads from a folder, as a trace records it: the part after the
// folder with "\" separators; the whole path when it is not under the folder.
std::string PathUnder(const std::string& path, const std::string& folder);
// Paths as Windows compares them: either separator, any case.
bool SamePathText(const std::string& a, const std::string& b);

// A buffer as a line holds it: none for a null one, no bytes for a size of 0
// or less.
std::optional<std::vector<uint8_t>> BytesOf(const void* data, long long size);

}  // namespace calder
