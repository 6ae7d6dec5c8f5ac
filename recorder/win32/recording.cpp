#include "recorder/win32/recording.h"

#include <aclapi.h>


#include "base/sha256.h"
#include "driver/folder_trust.h"
#include "platform/win32/folder_security.h"
#include "platform/win32/process_clock.h"
#include "platform/win32/win32_seams.h"
#include "trace/trace_place.h"

namespace calder::recorder {
namespace {

// The recorder only looks at folders; it makes and removes none.
class InspectingFiles : public FileSystem {
 public:
  bool MakeFolder(const std::string&) override { return false; }
  bool WriteNewFile(const std::string&, const void*, size_t) override { return false; }
  bool RemoveFile(const std::string&) override { return false; }
  bool ListFolder(const std::string&, const std::function<bool(const FolderEntry&)>&) override {
    return false;
  }
  PathFacts Inspect(const std::string& path) override { return InspectPath(path); }
};

std::wstring ModuleFolder() {
  HMODULE self = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                         GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                     reinterpret_cast<LPCWSTR>(&ModuleFolder), &self);
  wchar_t path[MAX_PATH] = {};
  const DWORD length = GetModuleFileNameW(self, path, MAX_PATH);
  if (length == 0 || length >= MAX_PATH) return std::wstring();
  std::wstring folder(path, length);
  const size_t slash = folder.find_last_of(L'\\');
  return slash == std::wstring::npos ? std::wstring() : folder.substr(0, slash);
}

// The local code page's form, or empty when a character has none: the
// folder checks take narrow paths, and a path they cannot name is refused.
std::string Narrow(const std::wstring& wide) {
  if (wide.empty()) return std::string();
  BOOL lossy = FALSE;
  const int size = WideCharToMultiByte(CP_ACP, 0, wide.c_str(), -1, nullptr, 0, nullptr, &lossy);
  if (size <= 0 || lossy) return std::string();
  std::string narrow(static_cast<size_t>(size), '\0');
  WideCharToMultiByte(CP_ACP, 0, wide.c_str(), -1, &narrow[0], size, nullptr, &lossy);
  narrow.resize(static_cast<size_t>(size) - 1);
  return lossy ? std::string() : narrow;
}

// Whether an ordinary account may put or replace files in the folder: a
// missing DACL, or one that lets Everyone, Users, Authenticated Users or
// Interactive write, create, delete or change permissions.
bool WritableByOrdinaryUsers(const std::wstring& path) {
  PACL dacl = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (GetNamedSecurityInfoW(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                            nullptr, &dacl, nullptr, &descriptor) != ERROR_SUCCESS) {
    return true;  // cannot tell: refuse
  }
  bool writable = dacl == nullptr;
  constexpr DWORD kWriteRights = FILE_WRITE_DATA | FILE_APPEND_DATA | FILE_DELETE_CHILD | DELETE |
                                 WRITE_DAC | WRITE_OWNER | GENERIC_WRITE | GENERIC_ALL |
                                 FILE_WRITE_ATTRIBUTES | FILE_WRITE_EA;
  const WELL_KNOWN_SID_TYPE ordinary[] = {WinWorldSid, WinBuiltinUsersSid,
                                          WinAuthenticatedUserSid, WinInteractiveSid};
  for (DWORD i = 0; dacl != nullptr && !writable && i < dacl->AceCount; ++i) {
    void* ace = nullptr;
    if (!GetAce(dacl, i, &ace)) {
      writable = true;
      break;
    }
    const auto* header = static_cast<ACE_HEADER*>(ace);
    if (header->AceType != ACCESS_ALLOWED_ACE_TYPE) continue;
    const auto* allowed = static_cast<ACCESS_ALLOWED_ACE*>(ace);
    if ((allowed->Mask & kWriteRights) == 0) continue;
    PSID sid = const_cast<DWORD*>(&allowed->SidStart);
    for (WELL_KNOWN_SID_TYPE type : ordinary) writable = writable || IsWellKnownSid(sid, type);
  }
  LocalFree(descriptor);
  return writable;
}

// The vendor folder and the library in it: present, no link, owned by an
// administrator (or this account), and the folder not open to ordinary users.
bool VendorTrusted(const std::wstring& folder, const std::wstring& library) {
  InspectingFiles files;
  const std::string narrowFolder = Narrow(folder);
  const std::string narrowLibrary = Narrow(library);
  if (narrowFolder.empty() || narrowLibrary.empty()) return false;
  return CheckFolder(files, narrowFolder).trusted && CheckFolder(files, narrowLibrary).trusted &&
         !WritableByOrdinaryUsers(folder);
}

// A disk flush costs milliseconds, more than the sensor's pauses: lines go
// to the file at once, where a process that dies keeps them, and reach the
// disk at this pace, from a thread no call waits for.
constexpr DWORD kFlushPeriodMs = 100;

int UtcOffsetMinutes() {
  TIME_ZONE_INFORMATION zone;
  const DWORD kind = GetTimeZoneInformation(&zone);
  LONG bias = zone.Bias;
  if (kind == TIME_ZONE_ID_DAYLIGHT) bias += zone.DaylightBias;
  if (kind == TIME_ZONE_ID_STANDARD) bias += zone.StandardBias;
  return kind == TIME_ZONE_ID_INVALID ? 0 : -bias;
}

}  // namespace

Recording::Recording(const wchar_t* libraryFile, TraceLibrary library)
    : libraryFile_(libraryFile), library_(library), folder_(ModuleFolder()) {
  if (folder_.empty()) return;
  const std::wstring vendorFolder = folder_ + L"\\" + kVendorFolder;
  const std::wstring path = vendorFolder + L"\\" + libraryFile_;
  if (VendorTrusted(vendorFolder, path)) vendorPath_ = path;
}

Recording::~Recording() {
  if (sink_.file != INVALID_HANDLE_VALUE) CloseHandle(sink_.file);
}

void Recording::FileSink::Append(const std::string& line) {
  if (file == INVALID_HANDLE_VALUE) return;
  DWORD written = 0;
  WriteFile(file, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
  ++lines;
}

DWORD WINAPI Recording::FlushLoop(void* sink) {
  FileSink& self = *static_cast<FileSink*>(sink);
  long flushed = 0;
  for (;;) {
    Sleep(kFlushPeriodMs);
    const long written = self.lines.load();
    if (written != flushed) FlushFileBuffers(self.file);
    flushed = written;
  }
}

void Recording::OpenTrace() {
  InspectingFiles files;
  if (!CheckFolderChain(files, kTraceTrustRoot, kTraceFolder).trusted) return;
  Win32ProcessInfo process;
  const LocalTime local = process.Now();
  const unsigned long pid = process.ProcessId();
  const std::string path =
      std::string(kTraceFolder) + "\\" + TraceFileName(local, pid, LibraryName(library_));
  if (!CheckFileTarget(files, path).trusted) return;
  // A new file only: whatever stands at the name already, link or not, is
  // neither followed nor overwritten.
  sink_.file = CreateFileA(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
  if (sink_.file == INVALID_HANDLE_VALUE) return;
  // The flushing thread runs until the process ends: the recorder stays
  // loaded as long, whatever FreeLibrary its caller makes.
  HMODULE self = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                     reinterpret_cast<LPCWSTR>(&ModuleFolder), &self);
  if (HANDLE thread = CreateThread(nullptr, 0, &FlushLoop, &sink_, 0, nullptr)) CloseHandle(thread);
  Trace header;
  header.library = library_;
  header.vendorSha256 = check::FileSha256(Narrow(vendorPath_)).value_or("");
  header.started = IsoLocalTime(local, UtcOffsetMinutes());
  header.pid = static_cast<int64_t>(pid);
  sink_.Append(FormatTraceHeader(header));
}

int64_t Recording::EnterCall() {
  if (!opened_) {
    opened_ = true;
    OpenTrace();
  }
  return Now();
}

int64_t Recording::Now() { return MicrosecondsSinceProcessStart(); }

std::string Recording::InPackage(const std::string& path) const { return PathUnder(path, Narrow(folder_)); }

}  // namespace calder::recorder
