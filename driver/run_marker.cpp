#include "driver/run_marker.h"

#include "driver/logging.h"
#include "platform/environment.h"
#include "platform/file_system.h"
#include "platform/process_info.h"

namespace calder {

const char kMarkerFolder[] = "C:\\ProgramData\\KORU\\KoruDeviceService";
const char kMarkerFileName[] = "Calder_ProcessPath.txt";

namespace {

// The marker's folder chain and the marker's own place; logs a refusal.
bool MarkerMayBeTouched() {
  TrustVerdict verdict = CheckChain(kMarkerFolder);
  if (verdict.trusted) verdict = CheckFileTarget(*Env().files, MarkerFilePath());
  if (!verdict.trusted) LogRefusal("run marker", verdict);
  return verdict.trusted;
}

}  // namespace

std::string MarkerFilePath() { return std::string(kMarkerFolder) + "\\" + kMarkerFileName; }

std::string MarkerFileBytes(const std::u16string& modulePath) {
  std::string bytes;
  bytes.reserve(modulePath.size() * 2);
  for (char16_t unit : modulePath) {
    bytes.push_back(static_cast<char>(unit & 0xFF));
    bytes.push_back(static_cast<char>(unit >> 8));
  }
  return bytes;
}

void WriteProcessPathMarker() {
  CreateFolderChain(kMarkerFolder);
  if (Env().process == nullptr || Env().files == nullptr) return;
  if (!MarkerMayBeTouched()) return;
  std::u16string path = Env().process->ModulePathW();
  if (path.size() >= kPathBuffer) path.resize(kPathBuffer - 1);
  const std::string bytes = MarkerFileBytes(path);
  Env().files->WriteNewFile(MarkerFilePath(), bytes.data(), bytes.size());
}

void DeleteProcessPathMarker() {
  if (Env().files == nullptr) return;
  if (!MarkerMayBeTouched()) return;
  Env().files->RemoveFile(MarkerFilePath());
}

}  // namespace calder
