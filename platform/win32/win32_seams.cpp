#include "platform/win32/win32_seams.h"

#include <windows.h>
#include <objbase.h>

#include "platform/environment.h"
#include "platform/win32/folder_security.h"
#include "platform/win32/win32_bridge_library.h"
#include "platform/win32/win32_hid_host.h"
#include "platform/win32/upgrade_library_win32.h"
#include "platform/win32/wmi_com_connector.h"

namespace calder {

void Win32Clock::Sleep(uint32_t ms) { ::Sleep(ms); }

uint64_t Win32Clock::NowMs() { return GetTickCount64(); }

bool Win32FileSystem::MakeFolder(const std::string& path) {
  return CreateProtectedFolder(path);
}

bool Win32FileSystem::WriteNewFile(const std::string& path, const void* data, size_t size) {
  HANDLE file = CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                            FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  DWORD written = 0;
  WriteFile(file, data, static_cast<DWORD>(size), &written, nullptr);
  FlushFileBuffers(file);
  CloseHandle(file);
  return true;
}

bool Win32FileSystem::RemoveFile(const std::string& path) {
  return DeleteFileA(path.c_str()) != FALSE;
}

bool Win32FileSystem::ListFolder(const std::string& pattern,
                                 const std::function<bool(const FolderEntry&)>& visit) {
  WIN32_FIND_DATAA data;
  HANDLE search = FindFirstFileA(pattern.c_str(), &data);
  if (search == INVALID_HANDLE_VALUE) return false;
  do {
    FolderEntry entry;
    entry.name = data.cFileName;
    entry.isDirectory = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    if (!visit(entry)) break;
  } while (FindNextFileA(search, &data));
  FindClose(search);
  return true;
}

PathFacts Win32FileSystem::Inspect(const std::string& path) { return InspectPath(path); }

std::string Win32ProcessInfo::ModulePathA() {
  char path[MAX_PATH] = {};
  GetModuleFileNameA(nullptr, path, MAX_PATH);
  return path;
}

std::u16string Win32ProcessInfo::ModulePathW() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return std::u16string(reinterpret_cast<const char16_t*>(path));
}

LocalTime Win32ProcessInfo::Now() {
  SYSTEMTIME st;
  GetLocalTime(&st);
  LocalTime t;
  t.year = st.wYear;
  t.month = st.wMonth;
  t.day = st.wDay;
  t.hour = st.wHour;
  t.minute = st.wMinute;
  t.second = st.wSecond;
  return t;
}

unsigned long Win32ProcessInfo::ProcessId() { return GetCurrentProcessId(); }

PowerRequestHandle Win32PowerRequests::Create(const wchar_t* reason) {
  REASON_CONTEXT context = {};
  context.Version = POWER_REQUEST_CONTEXT_VERSION;
  context.Flags = POWER_REQUEST_CONTEXT_SIMPLE_STRING;
  context.Reason.SimpleReasonString = const_cast<wchar_t*>(reason);
  return PowerCreateRequest(&context);
}

void Win32PowerRequests::Set(PowerRequestHandle handle, PowerRequestType type) {
  PowerSetRequest(handle, static_cast<POWER_REQUEST_TYPE>(type));
}

void Win32PowerRequests::Clear(PowerRequestHandle handle, PowerRequestType type) {
  PowerClearRequest(handle, static_cast<POWER_REQUEST_TYPE>(type));
}

void Win32PowerRequests::Close(PowerRequestHandle handle) { CloseHandle(handle); }

long Win32ComRuntime::InitializeMultithreaded() {
  return CoInitializeEx(nullptr, COINIT_MULTITHREADED);
}

void Win32ComRuntime::Uninitialize() { CoUninitialize(); }

void InstallWin32Environment() {
  static Win32Clock clock;
  static Win32FileSystem files;
  static Win32ProcessInfo process;
  static Win32PowerRequests power;
  static Win32ComRuntime com;
  Environment& env = Env();
  env.clock = &clock;
  env.files = &files;
  env.process = &process;
  env.power = &power;
  env.com = &com;
  env.hid = Win32Hid();
  env.bridge = Win32Bridge();
  env.upgrade = Win32Upgrade();
  env.wmi = Win32Wmi();
}

}  // namespace calder
