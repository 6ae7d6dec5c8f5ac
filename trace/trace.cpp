#include "trace/trace.h"

#include <cctype>

#include "base/sha256.h"
#include <set>

#include "platform/bridge_library.h"
#include "platform/hid_host.h"
#include "platform/upgrade_library.h"

namespace calder {
namespace {

struct LibraryNames {
  TraceLibrary library;
  const char* file;
  const char* name;
};

const LibraryNames kLibraries[] = {
    {TraceLibrary::kBridge, "btl_hid_transfer.dll", "bridge"},
    {TraceLibrary::kUpgrade, "btl_upgrade.dll", "upgrade"},
    {TraceLibrary::kHid, "hid.dll", "hid"},
};

const TraceEntry kEntries[] = {
    {kBridgeLibraryEntryPoints[kInitDriver], TraceLibrary::kBridge, kFieldRc, 0},
    {kBridgeLibraryEntryPoints[kOpenDevice], TraceLibrary::kBridge, kFieldRc, 0},
    {kBridgeLibraryEntryPoints[kWriteData], TraceLibrary::kBridge, kFieldIn | kFieldLen | kFieldRc, 0},
    {kBridgeLibraryEntryPoints[kReadData], TraceLibrary::kBridge, kFieldOut | kFieldLen | kFieldRc, 0},
    {kBridgeLibraryEntryPoints[kCloseDevice], TraceLibrary::kBridge, kFieldRc, 0},
    {kBridgeLibraryEntryPoints[kUninstallDriver], TraceLibrary::kBridge, kFieldRc, 0},
    {kUpgradeLibraryEntryPoints[kUpgradeInit], TraceLibrary::kUpgrade, kFieldConfig | kFieldRc, 0},
    {kUpgradeLibraryEntryPoints[kUpgradeFromFile], TraceLibrary::kUpgrade, kFieldPath | kFieldRc, 0},
    {kUpgradeLibraryEntryPoints[kGetChecksum], TraceLibrary::kUpgrade, kFieldIn | kFieldOut | kFieldRc, 4},
    {kUpgradeLibraryEntryPoints[kGetFirmwareVersion], TraceLibrary::kUpgrade,
     kFieldIn | kFieldOut | kFieldRc, 1},
    {kUpgradeLibraryEntryPoints[kGetChipId], TraceLibrary::kUpgrade, kFieldIn | kFieldOut | kFieldRc, 1},
    {kUpgradeLibraryEntryPoints[kCheckNeedUpgrade], TraceLibrary::kUpgrade,
     kFieldPath | kFieldIn | kFieldOut | kFieldRc, 4},
    {kUpgradeLibraryEntryPoints[kUpgradeDeinit], TraceLibrary::kUpgrade, 0, 0},
    {kHidCalls[kHidInterfaces], TraceLibrary::kHid, kFieldPaths, 0},
    // out: the vendor and product id, little-endian.
    {kHidCalls[kHidAttributes], TraceLibrary::kHid, kFieldDevicePath | kFieldOut | kFieldRc, 4},
    {kHidCalls[kHidOpen], TraceLibrary::kHid, kFieldDevicePath | kFieldDev, 0},
    {kHidCalls[kHidClose], TraceLibrary::kHid, kFieldDev | kFieldRc, 0},
    {kHidCalls[kHidSetOutputReport], TraceLibrary::kHid, kFieldDev | kFieldIn | kFieldLen | kFieldRc, 0},
    {kHidCalls[kHidGetInputReport], TraceLibrary::kHid,
     kFieldDev | kFieldReportId | kFieldOut | kFieldLen | kFieldRc, 0},
};

std::string Normal(std::string path) {
  for (char& c : path) c = c == '/' ? '\\' : c;
  return path;
}

const LibraryNames& Names(TraceLibrary library) {
  for (const LibraryNames& names : kLibraries) {
    if (names.library == library) return names;
  }
  return kLibraries[0];
}

}  // namespace

const char* LibraryFile(TraceLibrary library) { return Names(library).file; }
const char* LibraryName(TraceLibrary library) { return Names(library).name; }

bool LibraryOfFile(const std::string& file, TraceLibrary* library) {
  for (const LibraryNames& names : kLibraries) {
    if (file == names.file) {
      *library = names.library;
      return true;
    }
  }
  return false;
}

const TraceEntry* FindTraceEntry(const std::string& fn, TraceLibrary library) {
  for (const TraceEntry& entry : kEntries) {
    if (fn == entry.fn && entry.library == library) return &entry;
  }
  return nullptr;
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

const TraceLine* Trace::Refusal() const {
  for (const TraceLine& line : lines) {
    if (line.refused) return &line;
  }
  return nullptr;
}

bool Trace::Complete() const {
  if (cut) return false;
  if (library == TraceLibrary::kHid) {
    std::set<int64_t> open;
    for (const TraceLine& line : lines) {
      if (line.fn == kHidCalls[kHidOpen] && line.dev.value_or(0) > 0) open.insert(*line.dev);
      if (line.fn == kHidCalls[kHidClose] && line.rc.value_or(0) != 0) open.erase(line.dev.value_or(0));
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

std::string HexText(const std::vector<uint8_t>& bytes) { return check::HexOf(bytes.data(), bytes.size()); }

bool SamePathText(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    const char x = a[i] == '/' ? '\\' : static_cast<char>(std::tolower(static_cast<unsigned char>(a[i])));
    const char y = b[i] == '/' ? '\\' : static_cast<char>(std::tolower(static_cast<unsigned char>(b[i])));
    if (x != y) return false;
  }
  return true;
}

std::string PathUnder(const std::string& path, const std::string& folder) {
  const std::string p = Normal(path);
  std::string f = Normal(folder);
  if (!f.empty() && f.back() != '\\') f += '\\';
  if (!f.empty() && p.size() > f.size() && SamePathText(p.substr(0, f.size()), f)) return p.substr(f.size());
  return p;
}

TraceLine CallLine(const char* fn) {
  TraceLine line;
  line.fn = fn;
  return line;
}

std::optional<std::string> TextOf(const char* text) {
  return text != nullptr ? std::optional<std::string>(text) : std::nullopt;
}

std::optional<std::vector<uint8_t>> BytesOf(const void* data, long long size) {
  if (data == nullptr) return std::nullopt;
  const uint8_t* bytes = static_cast<const uint8_t*>(data);
  return std::vector<uint8_t>(bytes, bytes + (size > 0 ? size : 0));
}

}  // namespace calder
