#include "check/package_machine.h"

#include "base/firmware_discovery.h"

#include <algorithm>
#include <cctype>
#include <random>
#include <system_error>
#include <utility>

namespace calder::check {

namespace fs = std::filesystem;

namespace {

const char* const kFirmwareFolders[] = {kTouchpadFirmwareFolder, kForceFirmwareFolder};

std::string Upper(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

}  // namespace

bool NtfsNameLess(const std::string& a, const std::string& b) {
  const std::string ua = Upper(a);
  const std::string ub = Upper(b);
  return ua != ub ? ua < ub : a < b;
}

bool SameNameIgnoringCase(const std::string& a, const std::string& b) {
  return Upper(a) == Upper(b);
}

StagedPackage::StagedPackage(const fs::path& packageDir) {
  const fs::path real = fs::absolute(packageDir).lexically_normal();
  if (fs::path::preferred_separator == '\\') {
    machine_ = std::make_unique<PackageMachine>(real, (real / "").parent_path().string());
    return;
  }
  std::random_device random;
  std::error_code error;
  do {
    stage_ = fs::temp_directory_path() / ("calder-check-" + std::to_string(random()));
  } while (!fs::create_directory(stage_, error) && !error);
  const std::string moduleDir = (stage_ / "pkg").string();
  machine_ = std::make_unique<PackageMachine>(real, moduleDir);
  for (const char* folder : kFirmwareFolders) {
    for (const std::string& name : machine_->RegularFiles(folder)) {
      const std::string programPath = moduleDir + folder + "\\" + name;
      fs::create_symlink(machine_->RealPath(programPath), programPath, error);
    }
  }
}

StagedPackage::~StagedPackage() {
  std::error_code ignored;
  if (!stage_.empty()) fs::remove_all(stage_, ignored);
}

PackageMachine::PackageMachine(fs::path packageDir, std::string moduleDir)
    : packageDir_(std::move(packageDir)), moduleDir_(std::move(moduleDir)) {}

std::u16string PackageMachine::ModulePathW() {
  const std::string narrow = ModulePathA();
  return std::u16string(narrow.begin(), narrow.end());
}

fs::path PackageMachine::RealPath(const std::string& programPath) const {
  if (programPath.compare(0, moduleDir_.size(), moduleDir_) != 0) return fs::path();
  std::string rest = programPath.substr(moduleDir_.size());
  std::replace(rest.begin(), rest.end(), '\\', '/');
  return fs::path(packageDir_.string() + rest).lexically_normal();
}

bool PackageMachine::ListFolder(const std::string& pattern,
                                const std::function<bool(const FolderEntry&)>& visit) {
  if (pattern.size() < 2 || pattern.compare(pattern.size() - 2, 2, "\\*") != 0) return false;
  const fs::path folder = RealPath(pattern.substr(0, pattern.size() - 2));
  std::error_code error;
  if (folder.empty() || !fs::is_directory(folder, error)) return false;
  std::vector<FolderEntry> entries = {{".", true}, {"..", true}};
  for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    std::error_code ignored;
    entries.push_back({it->path().filename().string(), fs::is_directory(it->path(), ignored)});
  }
  std::sort(entries.begin() + 2, entries.end(),
            [](const FolderEntry& a, const FolderEntry& b) { return NtfsNameLess(a.name, b.name); });
  for (const FolderEntry& entry : entries) {
    if (!visit(entry)) break;
  }
  return true;
}

std::vector<std::string> PackageMachine::RegularFiles(const std::string& subfolder) {
  std::vector<std::string> names;
  ListFolder(moduleDir_ + subfolder + "\\*", [&names](const FolderEntry& entry) {
    if (!entry.isDirectory) names.push_back(entry.name);
    return true;
  });
  return names;
}

}  // namespace calder::check
