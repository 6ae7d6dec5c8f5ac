#include "check/system_libraries.h"

#include <cctype>

namespace calder::check {

namespace {

// Lower case. What a mingw-w64 program can import from Windows; the C
// runtime is msvcrt (or the universal CRT), never a library of our own.
const char* const kSystemLibraries[] = {
    "advapi32.dll", "bcrypt.dll",   "cfgmgr32.dll", "comctl32.dll", "comdlg32.dll", "crypt32.dll",
    "dbghelp.dll",  "dwmapi.dll",   "gdi32.dll",    "gdiplus.dll",  "hid.dll",      "imagehlp.dll",
    "imm32.dll",    "iphlpapi.dll", "kernel32.dll", "kernelbase.dll", "msimg32.dll", "msvcrt.dll",
    "ntdll.dll",    "ole32.dll",    "oleaut32.dll", "powrprof.dll", "psapi.dll",    "rpcrt4.dll",
    "secur32.dll",  "setupapi.dll", "shcore.dll",   "shell32.dll",  "shlwapi.dll",  "ucrtbase.dll",
    "user32.dll",   "userenv.dll",  "uxtheme.dll",  "version.dll",  "winhttp.dll",  "wininet.dll",
    "winmm.dll",    "wintrust.dll", "ws2_32.dll",   "wtsapi32.dll",
};

// API sets: names the loader maps onto system libraries.
const char* const kSystemPrefixes[] = {"api-ms-win-", "ext-ms-win-"};

}  // namespace

bool IsWindowsSystemLibrary(const std::string& name) {
  std::string lower;
  for (const char c : name) lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  for (const char* library : kSystemLibraries) {
    if (lower == library) return true;
  }
  for (const char* prefix : kSystemPrefixes) {
    if (lower.rfind(prefix, 0) == 0) return true;
  }
  return false;
}

}  // namespace calder::check
