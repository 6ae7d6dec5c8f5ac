#include "tests/support/fake_system.h"

#include <algorithm>
#include <string>

namespace calder::test {
namespace {

const char* TypeName(PowerRequestType type) {
  return type == PowerRequestType::DisplayRequired ? "Display" : "System";
}

}  // namespace

bool FakeSystem::MakeFolder(const std::string& path) {
  createdDirs.push_back(path);
  if (std::find(folders.begin(), folders.end(), path) != folders.end()) return false;
  folders.push_back(path);
  return true;
}

bool FakeSystem::WriteNewFile(const std::string& path, const void* data, size_t size) {
  const std::string folder = path.substr(0, path.find_last_of('\\'));
  if (std::find(folders.begin(), folders.end(), folder) == folders.end()) return false;
  files[path] = std::string(static_cast<const char*>(data), size);
  return true;
}

bool FakeSystem::RemoveFile(const std::string& path) { return files.erase(path) != 0; }

bool FakeSystem::ListFolder(const std::string& pattern,
                            const std::function<bool(const FolderEntry&)>& visit) {
  calls.push_back("ListFolder " + pattern);
  if (pattern.size() < 2 || pattern.compare(pattern.size() - 2, 2, "\\*") != 0) return false;
  const std::string folder = pattern.substr(0, pattern.size() - 2);
  if (std::find(folders.begin(), folders.end(), folder) == folders.end()) return false;
  // Like NTFS: ".", "..", then names in order, folders and files mixed.
  std::map<std::string, bool> entries;
  for (const std::string& f : folders) {
    if (f.size() > folder.size() + 1 && f.compare(0, folder.size() + 1, folder + "\\") == 0 &&
        f.find('\\', folder.size() + 1) == std::string::npos) {
      entries[f.substr(folder.size() + 1)] = true;
    }
  }
  for (const auto& file : files) {
    const std::string& f = file.first;
    if (f.size() > folder.size() + 1 && f.compare(0, folder.size() + 1, folder + "\\") == 0 &&
        f.find('\\', folder.size() + 1) == std::string::npos) {
      entries[f.substr(folder.size() + 1)] = false;
    }
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
  std::string narrow;
  for (const wchar_t* p = reason; *p != 0; ++p) narrow.push_back(static_cast<char>(*p));
  calls.push_back("PowerCreateRequest " + narrow);
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
  size_t pos = 0;
  while ((pos = path.find('\\', pos + 1)) != std::string::npos) {
    const std::string prefix = path.substr(0, pos);
    if (std::find(folders.begin(), folders.end(), prefix) == folders.end()) folders.push_back(prefix);
  }
  if (std::find(folders.begin(), folders.end(), path) == folders.end()) folders.push_back(path);
}

}  // namespace calder::test
