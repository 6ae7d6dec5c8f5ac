#pragma once

#include <windows.h>

#include <string>

namespace calder {

// The process runs elevated: no library may come from the current folder or
// PATH. Called first in WinMain, before anything can load a library; leaves
// the executable's own folder and the system folder as the default search.
void RestrictLibrarySearch();

// A system library (hid.dll, setupapi.dll, ...) from the system folder only.
HMODULE LoadSystemLibrary(const wchar_t* name);

// A bare file name is taken from the executable's folder, by full path; a
// path is loaded as given. Either way the library's own imports come from
// its folder and the system folder. Null when absent, with the last error set.
HMODULE LoadBesideExecutable(const std::wstring& nameOrPath);

// The file name part of a library name or path, narrowed for log text.
std::string LibraryFileName(const std::wstring& nameOrPath);

}  // namespace calder
