#pragma once

#include <windows.h>

#include <string>

namespace calder {

// A stand-in DLL that the build puts below this test program's folder, for
// example L"sim\\btl_upgrade\\btl_upgrade.dll".
inline std::wstring StandInPath(const wchar_t* below) {
  wchar_t exe[MAX_PATH] = {};
  const std::wstring path(exe, GetModuleFileNameW(nullptr, exe, MAX_PATH));
  return path.substr(0, path.find_last_of(L"\\/") + 1) + below;
}

}  // namespace calder
