#include "base/firmware_discovery.h"

#include "platform/environment.h"
#include "platform/file_system.h"
#include "platform/process_info.h"

namespace calder {

const char kTouchpadFirmwareFolder[] = "\\TP";
const char kForceFirmwareFolder[] = "\\Force";

namespace {

bool IsSeparator(char c) { return c == '\\' || c == '/'; }

bool EndsWithSeparator(const std::string& s) { return !s.empty() && IsSeparator(s.back()); }

}  // namespace

std::string DirectoryOf(const std::string& path) {
  const size_t last = path.find_last_of("\\/");
  return last == std::string::npos ? path : path.substr(0, last);
}

std::string JoinFolderAndName(const std::string& folder, const std::string& name) {
  return EndsWithSeparator(folder) ? folder + name : folder + "\\" + name;
}

std::string FolderSearchPattern(const std::string& folder) {
  return JoinFolderAndName(folder, "*");
}

std::string GetModuleDir() {
  if (Env().process == nullptr) return std::string();
  std::string path = Env().process->ModulePathA();
  if (path.size() >= kPathBuffer) path.resize(kPathBuffer - 1);
  return DirectoryOf(path);
}

std::string FindFirstFileInFolder(const std::string& folder) {
  if (folder.empty() || Env().files == nullptr) return std::string();
  std::string chosen;
  Env().files->ListFolder(FolderSearchPattern(folder), [&chosen](const FolderEntry& entry) {
    if (entry.isDirectory) return true;
    chosen = entry.name;
    return false;
  });
  return chosen.empty() ? std::string() : JoinFolderAndName(folder, chosen);
}

std::string GetFileStem(const std::string& path) {
  const size_t slash = path.find_last_of("\\/");
  const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  const size_t dot = name.find_last_of('.');
  return dot == std::string::npos ? name : name.substr(0, dot);
}

}  // namespace calder
