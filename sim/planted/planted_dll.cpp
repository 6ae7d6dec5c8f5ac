// Loaded means caught: on attach it writes "<its own path>.loaded" beside
// itself, so a test sees exactly which planted copy the program picked up.
#include <windows.h>

BOOL WINAPI DllMain(HINSTANCE self, DWORD reason, LPVOID) {
  if (reason != DLL_PROCESS_ATTACH) return TRUE;
  wchar_t path[MAX_PATH + 8] = {};
  const DWORD length = GetModuleFileNameW(self, path, MAX_PATH);
  lstrcpyW(path + length, L".loaded");
  HANDLE record = CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
  if (record != INVALID_HANDLE_VALUE) CloseHandle(record);
  return TRUE;
}

// Something to import, so that a library can depend on this one.
extern "C" __declspec(dllexport) int planted_marker() { return 1; }
