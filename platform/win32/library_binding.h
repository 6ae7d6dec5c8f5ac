#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <utility>

namespace calder {

// Where a library is taken from; never through the default search.
enum class LibraryFolder { kSystem, kBesideExecutable };

// Why a library is not bound: the one failure result of every binding.
enum class BindFailure { kNone, kLibraryNotLoaded, kEntryPointMissing };

// Looks entry points up in one loaded module, each into its typed slot of a
// table, and remembers the first name it could not find.
class EntryPointFinder {
 public:
  explicit EntryPointFinder(HMODULE module) : module_(module) {}

  template <typename Fn>
  void operator()(const char* name, Fn* slot) {
    const FARPROC proc = GetProcAddress(module_, name);
    *slot = reinterpret_cast<Fn>(reinterpret_cast<void*>(proc));
    if (proc == nullptr && missing_.empty()) missing_ = name;
  }

  const std::string& missing() const { return missing_; }

 private:
  HMODULE module_;
  std::string missing_;
};

// One library, loaded once by full path or from the system folder, and what
// went wrong if it could not be bound. LibraryBinding adds the table.
class LibraryModule {
 public:
  LibraryModule(std::wstring nameOrPath, LibraryFolder folder);
  ~LibraryModule();
  LibraryModule(const LibraryModule&) = delete;
  LibraryModule& operator=(const LibraryModule&) = delete;

  bool bound() const { return module_ != nullptr; }
  BindFailure failure() const { return failure_; }
  // The file name part, for log text.
  std::string FileName() const;
  // The loader's error when the file could not be loaded.
  DWORD loadError() const { return loadError_; }
  // What is missing: "<file> could not be loaded, error N" or "<file> has no
  // entry point NAME"; empty while bound or not yet tried.
  std::string Missing() const;

 protected:
  // Loads the library and lets fill look up every entry point, on the first
  // call only; false from then on when the file or any entry point was
  // missing, and the library is then released.
  bool BindOnce(const std::function<void(EntryPointFinder&)>& fill);

 private:
  std::wstring nameOrPath_;
  LibraryFolder folder_;
  bool tried_ = false;
  HMODULE module_ = nullptr;
  BindFailure failure_ = BindFailure::kNone;
  DWORD loadError_ = 0;
  std::string missingEntryPoint_;
};

// A library with its typed table of entry points (a struct of function
// pointers that Fill names one by one), bound on the first call of Bind and
// never again: every entry point or none.
template <typename Table>
class LibraryBinding : public LibraryModule {
 public:
  using Fill = void (*)(EntryPointFinder& find, Table* table);

  LibraryBinding(std::wstring nameOrPath, LibraryFolder folder, Fill fill)
      : LibraryModule(std::move(nameOrPath), folder), fill_(fill) {}

  // The whole table, or null when the library cannot be bound.
  const Table* Bind() {
    if (BindOnce([this](EntryPointFinder& find) { fill_(find, &table_); })) return &table_;
    table_ = Table{};
    return nullptr;
  }

 private:
  Fill fill_;
  Table table_{};
};

}  // namespace calder
