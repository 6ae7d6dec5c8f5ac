#include "platform/win32/library_binding.h"

#include "platform/win32/library_loading.h"

namespace calder {

LibraryModule::LibraryModule(std::wstring nameOrPath, LibraryFolder folder)
    : nameOrPath_(std::move(nameOrPath)), folder_(folder) {}

LibraryModule::~LibraryModule() {
  if (module_ != nullptr) FreeLibrary(module_);
}

bool LibraryModule::BindOnce(const std::function<void(EntryPointFinder&)>& fill) {
  if (tried_) return module_ != nullptr;
  tried_ = true;
  module_ = folder_ == LibraryFolder::kSystem ? LoadSystemLibrary(nameOrPath_.c_str())
                                              : LoadBesideExecutable(nameOrPath_);
  if (module_ == nullptr) {
    loadError_ = GetLastError();
    failure_ = BindFailure::kLibraryNotLoaded;
    return false;
  }
  EntryPointFinder find(module_);
  fill(find);
  if (find.missing().empty()) return true;
  missingEntryPoint_ = find.missing();
  failure_ = BindFailure::kEntryPointMissing;
  FreeLibrary(module_);
  module_ = nullptr;
  return false;
}

std::string LibraryModule::FileName() const { return LibraryFileName(nameOrPath_); }

std::string LibraryModule::Missing() const {
  switch (failure_) {
    case BindFailure::kLibraryNotLoaded:
      return FileName() + " could not be loaded, error " + std::to_string(loadError_);
    case BindFailure::kEntryPointMissing:
      return FileName() + " has no entry point " + missingEntryPoint_;
    case BindFailure::kNone:
      break;
  }
  return std::string();
}

}  // namespace calder
