#include "tests/support/fake_system.h"

#include <algorithm>
#include <cwchar>
#include <string>

namespace calder::test {
namespace {

const char* TypeName(PowerRequestType type) {
  return type == PowerRequestType::DisplayRequired ? "Display" : "System";
}

bool Has(const std::vector<std::string>& list, const std::string& item) {
  return std::find(list.begin(), list.end(), item) != list.end();
}

// The name of the entry that path is directly inside folder; empty if none.
std::string ChildName(const std::string& folder, const std::string& path) {
  const std::string prefix = folder + "\\";
  if (path.size() <= prefix.size() || path.compare(0, prefix.size(), prefix) != 0) return "";
  const std::string name = path.substr(prefix.size());
  return name.find('\\') == std::string::npos ? name : "";
}

}  // namespace

bool FakeSystem::MakeFolder(const std::string& path) {
  createdDirs.push_back(path);
  if (Has(folders, path)) return false;
  folders.push_back(path);
  return true;
}

bool FakeSystem::WriteNewFile(const std::string& path, const void* data, size_t size) {
  if (!Has(folders, path.substr(0, path.find_last_of('\\')))) return false;
  files[path] = std::string(static_cast<const char*>(data), size);
  return true;
}

bool FakeSystem::RemoveFile(const std::string& path) { return files.erase(path) != 0; }

bool FakeSystem::ListFolder(const std::string& pattern,
                            const std::function<bool(const FolderEntry&)>& visit) {
  calls.push_back("ListFolder " + pattern);
  if (pattern.size() < 2 || pattern.compare(pattern.size() - 2, 2, "\\*") != 0) return false;
  const std::string folder = pattern.substr(0, pattern.size() - 2);
  if (!Has(folders, folder)) return false;
  // Like NTFS: ".", "..", then names in order, folders and files mixed.
  std::map<std::string, bool> entries;
  for (const std::string& f : folders) {
    if (!ChildName(folder, f).empty()) entries[ChildName(folder, f)] = true;
  }
  for (const auto& file : files) {
    if (!ChildName(folder, file.first).empty()) entries[ChildName(folder, file.first)] = false;
  }
  if (!visit({".", true}) || !visit({"..", true})) return true;
  for (const auto& e : entries) {
    if (!visit({e.first, e.second})) break;
  }
  return true;
}

PathFacts FakeSystem::Inspect(const std::string& path) {
  const auto odd = oddPaths.find(path);
  if (odd != oddPaths.end()) return odd->second;
  PathFacts facts;
  facts.exists = HasFile(path) || std::find(folders.begin(), folders.end(), path) != folders.end();
  if (facts.exists) facts.owner = PathOwner::kSystemOrAdministrators;
  return facts;
}

PowerRequestHandle FakeSystem::Create(const wchar_t* reason) {
  calls.push_back("PowerCreateRequest " + std::string(reason, reason + std::wcslen(reason)));
  return powerHandle;
}

void FakeSystem::Set(PowerRequestHandle, PowerRequestType type) {
  calls.push_back(std::string("PowerSetRequest ") + TypeName(type));
}

void FakeSystem::Clear(PowerRequestHandle, PowerRequestType type) {
  calls.push_back(std::string("PowerClearRequest ") + TypeName(type));
}

void FakeSystem::Close(PowerRequestHandle) { calls.push_back("CloseHandle"); }

long FakeSystem::InitializeMultithreaded() {
  calls.push_back("CoInitializeEx");
  return comResult;
}

void FakeSystem::Uninitialize() { calls.push_back("CoUninitialize"); }

void FakeSystem::Into(Environment* env) {
  env->files = this;
  env->process = this;
  env->power = this;
  env->com = this;
  env->progress = this;
}

void FakeSystem::AddFile(const std::string& path, const std::string& content) {
  AddFolder(path.substr(0, path.find_last_of('\\')));
  files[path] = content;
}

void FakeSystem::AddFolder(const std::string& path) {
  for (size_t pos = path.find('\\', 1);; pos = path.find('\\', pos + 1)) {
    if (!Has(folders, path.substr(0, pos))) folders.push_back(path.substr(0, pos));
    if (pos == std::string::npos) return;
  }
}

}  // namespace calder::test
