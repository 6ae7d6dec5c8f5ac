#include "platform/win32/trace_file_win32.h"

#include <windows.h>

#include "platform/win32/new_file.h"

namespace calder {
namespace {

// A disk flush costs milliseconds, more than the devices' pauses.
constexpr DWORD kFlushPeriodMs = 100;

}  // namespace

Win32TraceFile* Win32TraceFile::CreateNew(const std::string& path) {
  HANDLE file = CreateNewFile(path);
  if (file == INVALID_HANDLE_VALUE) return nullptr;
  auto* trace = new Win32TraceFile(file);
  if (HANDLE thread = CreateThread(nullptr, 0, &FlushLoop, trace, 0, nullptr)) {
    CloseHandle(thread);
  }
  return trace;
}

void Win32TraceFile::Append(const std::string& line) {
  DWORD written = 0;
  WriteFile(file_, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
  ++lines_;
}

unsigned long __stdcall Win32TraceFile::FlushLoop(void* self) {
  Win32TraceFile& trace = *static_cast<Win32TraceFile*>(self);
  long flushed = 0;
  for (;;) {
    Sleep(kFlushPeriodMs);
    const long written = trace.lines_.load();
    if (written != flushed) FlushFileBuffers(trace.file_);
    flushed = written;
  }
}

int UtcOffsetMinutes() {
  TIME_ZONE_INFORMATION zone;
  const DWORD kind = GetTimeZoneInformation(&zone);
  LONG bias = zone.Bias;
  if (kind == TIME_ZONE_ID_DAYLIGHT) bias += zone.DaylightBias;
  if (kind == TIME_ZONE_ID_STANDARD) bias += zone.StandardBias;
  return kind == TIME_ZONE_ID_INVALID ? 0 : -bias;
}

}  // namespace calder
