#include "platform/win32/library_loading.h"

namespace calder {
namespace {

std::wstring ExecutableFolder() {
  wchar_t path[MAX_PATH] = {};
  const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring folder(path, length);
  const size_t slash = folder.find_last_of(L'\\');
  return slash == std::wstring::npos ? std::wstring() : folder.substr(0, slash + 1);
}

}  // namespace

void RestrictLibrarySearch() {
  SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_APPLICATION_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32);
  // Also drops the current folder from the older search that some system
  // code still uses.
  SetDllDirectoryW(L"");
}

HMODULE LoadSystemLibrary(const wchar_t* name) {
  return LoadLibraryExW(name, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
}

HMODULE LoadBesideExecutable(const std::wstring& nameOrPath) {
  const std::wstring path = nameOrPath.find(L'\\') == std::wstring::npos
                                ? ExecutableFolder() + nameOrPath
                                : nameOrPath;
  return LoadLibraryExW(path.c_str(), nullptr,
                        LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32);
}

std::string LibraryFileName(const std::wstring& nameOrPath) {
  const size_t slash = nameOrPath.find_last_of(L'\\');
  const std::wstring name = slash == std::wstring::npos ? nameOrPath : nameOrPath.substr(slash + 1);
  std::string narrow;
  for (wchar_t c : name) narrow += c < 0x80 ? static_cast<char>(c) : '?';
  return narrow;
}

}  // namespace calder
