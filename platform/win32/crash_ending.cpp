#include "platform/win32/crash_ending.h"

#include <windows.h>

#include <atomic>
#include <cstdio>
#include <cstring>

#include "base/log.h"
#include "base/log_lines.h"
#include "platform/win32/library_binding.h"

namespace calder {

namespace {

namespace lines = log_lines::crash_ending_cpp;

constexpr UINT kCrashExit = 1;
// Long enough for a flushed line; a logger held by the crashed thread never answers.
constexpr DWORD kLoggerWaitMs = 3000;
constexpr DWORD kWerFaultReportingNoUi = 0x20;  // WER_FAULT_REPORTING_NO_UI

// Faults no code of ours handles; a library that catches one itself has
// still run wild, so the first chance is the last.
constexpr DWORD kFaults[] = {
    EXCEPTION_ACCESS_VIOLATION,     EXCEPTION_IN_PAGE_ERROR,     EXCEPTION_ILLEGAL_INSTRUCTION,
    EXCEPTION_PRIV_INSTRUCTION,     EXCEPTION_STACK_OVERFLOW,    EXCEPTION_INT_DIVIDE_BY_ZERO,
    EXCEPTION_ARRAY_BOUNDS_EXCEEDED, EXCEPTION_DATATYPE_MISALIGNMENT, EXCEPTION_NONCONTINUABLE_EXCEPTION,
    0xC0000374 /* heap corruption */};

struct WerCall {
  HRESULT(WINAPI* setFlags)(DWORD);
};

void FillWerCall(EntryPointFinder& find, WerCall* call) { find("WerSetFlags", &call->setFlags); }

std::atomic<UpdateLock*> g_lock{nullptr};
std::atomic<ShutdownBlocker*> g_blocker{nullptr};
std::atomic<bool> g_ending{false};
char g_line[512];

DWORD WINAPI WriteLine(void*) {
  LOG(ERROR) << g_line;
  return 0;
}

// "0xC0000005 in btl_upgrade.dll+0x1234", or "... at 0x..." outside any module.
void DescribeCrash(const EXCEPTION_RECORD& record) {
  const auto address = reinterpret_cast<uintptr_t>(record.ExceptionAddress);
  int used = std::snprintf(g_line, sizeof g_line, "%s%08lX", lines::kUnhandled,
                           static_cast<unsigned long>(record.ExceptionCode));
  HMODULE module = nullptr;
  wchar_t path[MAX_PATH];
  char name[MAX_PATH * 3];
  const bool known =
      GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                         reinterpret_cast<LPCWSTR>(record.ExceptionAddress), &module) &&
      GetModuleFileNameW(module, path, MAX_PATH) > 0;
  if (known) {
    const wchar_t* base = std::wcsrchr(path, L'\\');
    if (WideCharToMultiByte(CP_UTF8, 0, base != nullptr ? base + 1 : path, -1, name, sizeof name, nullptr,
                            nullptr) <= 0) {
      std::strcpy(name, "?");
    }
    std::snprintf(g_line + used, sizeof g_line - used, "%s%s%s%llX", lines::kUnhandledIn, name,
                  lines::kUnhandledOffset,
                  static_cast<unsigned long long>(address - reinterpret_cast<uintptr_t>(module)));
  } else {
    std::snprintf(g_line + used, sizeof g_line - used, "%s%llX", lines::kUnhandledAt,
                  static_cast<unsigned long long>(address));
  }
}

[[noreturn]] void EndAfterCrash(const EXCEPTION_RECORD& record) {
  // A second crash, the logger's own or another thread's, ends it at once.
  if (g_ending.exchange(true)) TerminateProcess(GetCurrentProcess(), kCrashExit);
  DescribeCrash(record);
  // Written from a fresh thread: the crashed one may hold the logger's lock.
  HANDLE writer = CreateThread(nullptr, 0, &WriteLine, nullptr, 0, nullptr);
  if (writer != nullptr) WaitForSingleObject(writer, kLoggerWaitMs);
  // Each gives back only from the thread that took it; otherwise the
  // process's end does (the next run takes the abandoned lock over).
  if (ShutdownBlocker* blocker = g_blocker.load()) blocker->Unblock();
  if (UpdateLock* lock = g_lock.load()) lock->Release();
  TerminateProcess(GetCurrentProcess(), kCrashExit);
  for (;;) Sleep(INFINITE);
}

bool IsFault(DWORD code) {
  for (DWORD fault : kFaults) {
    if (code == fault) return true;
  }
  return false;
}

LONG WINAPI OnFirstChance(EXCEPTION_POINTERS* info) {
  if (IsFault(info->ExceptionRecord->ExceptionCode)) EndAfterCrash(*info->ExceptionRecord);
  return EXCEPTION_CONTINUE_SEARCH;
}

LONG WINAPI OnUnhandled(EXCEPTION_POINTERS* info) { EndAfterCrash(*info->ExceptionRecord); }

}  // namespace

void SilenceErrorDialogs() {
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
  static LibraryBinding<WerCall> kernel32(L"kernel32.dll", LibraryFolder::kSystem, FillWerCall);
  if (const WerCall* wer = kernel32.Bind()) wer->setFlags(kWerFaultReportingNoUi);
}

void EndRunOnCrash(UpdateLock* lock) {
  g_lock = lock;
  AddVectoredExceptionHandler(1, &OnFirstChance);
  SetUnhandledExceptionFilter(&OnUnhandled);
}

void CrashLiftsShutdownBlock(ShutdownBlocker* blocker) { g_blocker = blocker; }

}  // namespace calder
