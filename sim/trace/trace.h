#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace calder::replay {

// Which vendor library a trace recorded, or calder.exe's own HID traffic.
enum class TraceLibrary { kBridge, kUpgrade, kHid };

const char* LibraryFile(TraceLibrary library);  // "btl_hid_transfer.dll", ..., "hid.dll"

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
};

// One line after the header: a call (fn set) or a callback (cb set).
struct TraceLine {
  int64_t seq = 0;
  int64_t tUs = 0;
  std::string fn;
  std::string cb;  // "progress" or "log"
  std::optional<std::vector<uint8_t>> in;
  std::optional<std::vector<uint8_t>> out;
  std::optional<int64_t> len;
  std::optional<int32_t> rc;
  std::optional<std::string> path;
  std::optional<std::string> sha256;  // none: the file was unreadable
  std::optional<TraceConfig> config;
  int32_t value = 0;                  // callback: percent or level
  std::optional<std::string> text;    // callback: none for a null text
  std::optional<int64_t> dev;         // HID: the handle, as the number of its open
  std::vector<std::string> paths;     // HID: the interfaces listed
  bool isCall() const { return !fn.empty(); }
};

struct Trace {
  std::string name;  // the file, for messages
  TraceLibrary library = TraceLibrary::kBridge;
  std::string vendorSha256;
  std::string dir;  // the recorder's folder; recorded paths are relative to it
  std::string run = "--update";  // a HID trace's: calder.exe's switch
  std::vector<TraceLine> lines;
  bool cut = false;  // the last line was cut mid-way and dropped
  std::vector<std::string> notes;

  // The recording ended with the library's session: nothing could follow.
  bool Complete() const;
  size_t CallCount() const;
};

// Reads NDJSON trace text. False with a message naming the line when the
// text is no trace: an empty text, a header that is not ours, a line before
// the last that is not JSON, an unknown entry point, a field missing or of
// the wrong kind, bad hex. A last line cut mid-way (no newline after it) is
// dropped with a note.
bool ParseTrace(const std::string& text, const std::string& name, Trace* trace,
                std::string* error);
bool ReadTraceFile(const std::string& path, Trace* trace, std::string* error);

// The trace as NDJSON text, the header first.
std::string FormatTrace(const Trace& trace);

std::string HexText(const std::vector<uint8_t>& bytes);

}  // namespace calder::replay
