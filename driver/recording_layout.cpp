#include "driver/recording_layout.h"

#include "driver/folder_trust.h"
#include "driver/logging.h"
#include "platform/environment.h"
#include "trace/trace_writer.h"

namespace calder {
namespace {

constexpr const char* kLibraries[] = {"btl_upgrade.dll", "btl_hid_transfer.dll"};
constexpr char kVendorFolder[] = "vendor";

}  // namespace

bool IsRecordingLayout(FileSystem& files, const std::string& programDir) {
  if (programDir.empty()) return false;
  const std::string vendor = programDir + "\\" + kVendorFolder;
  std::string paths[] = {programDir, vendor, "", "", "", ""};
  for (size_t i = 0; i < 2; ++i) {
    paths[2 + i] = programDir + "\\" + kLibraries[i];
    paths[4 + i] = vendor + "\\" + kLibraries[i];
  }
  for (const std::string& path : paths) {
    if (!CheckFolder(files, path).trusted) return false;
  }
  return true;
}

std::string HidTracePath(const LocalTime& time, unsigned long pid) {
  if (Env().files == nullptr || !CheckChain(kLogFolder).trusted) return std::string();
  const std::string path = std::string(kLogFolder) + "\\" + TraceFileName(time, pid, LibraryName(TraceLibrary::kHid));
  return CheckFileTarget(*Env().files, path).trusted ? path : std::string();
}

}  // namespace calder
