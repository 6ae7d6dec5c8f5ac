#include "recorder/win32/recording.h"


#include "base/sha256.h"
#include "driver/folder_trust.h"
#include "platform/win32/folder_security.h"
#include "platform/win32/new_file.h"
#include "platform/win32/process_clock.h"
#include "platform/win32/trace_file_win32.h"
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

// A disk flush costs milliseconds, more than the sensor's pauses: lines go
// to the file at once, where a process that dies keeps them, and reach the
// disk at this pace, from a thread no call waits for.
constexpr DWORD kFlushPeriodMs = 100;

}  // namespace

Recording::Recording(const wchar_t* libraryFile, TraceLibrary library)
    : libraryFile_(libraryFile), library_(library), folder_(ModuleFolder()) {
  if (folder_.empty()) return;
  vendor_ = std::make_unique<CheckedLibrary>(folder_, kVendorFolder, libraryFile_);
  if (vendor_->loaded()) vendorPath_ = vendor_->path();
}

Recording::~Recording() {
  if (sink_.file != INVALID_HANDLE_VALUE) CloseHandle(sink_.file);
}

void Recording::FileSink::Append(const std::string& line) {
  if (file == INVALID_HANDLE_VALUE || sealed) return;
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
  sink_.file = CreateNewFile(path);
  if (sink_.file == INVALID_HANDLE_VALUE) return;
  // The vendor library as it was checked and loaded, from the held file.
  std::string vendorSha;
  if (vendor_ && !vendor_->bytes().empty()) {
    const std::string& bytes = vendor_->bytes();
    vendorSha = check::Sha256Hex(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  }
  Trace header;
  header.library = library_;
  header.vendorSha256 = vendorSha;
  header.started = IsoLocalTime(local, UtcOffsetMinutes());
  header.pid = static_cast<int64_t>(pid);
  sink_.Append(FormatTraceHeader(header));
  if (vendorPath_.empty()) {
    // No call reaches the vendor library: the one line says why.
    TraceLine line;
    line.refused = vendor_ ? vendor_->refused() : std::string("vendor\\");
    line.why = vendor_ ? vendor_->why() : std::string("cannot be named: the recorder's own path cannot be read");
    writer_.Write(line);
    FlushFileBuffers(sink_.file);
    sink_.sealed = true;
    return;
  }
  // The flushing thread runs until the process ends: the recorder stays
  // loaded as long, whatever FreeLibrary its caller makes.
  HMODULE self = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                     reinterpret_cast<LPCWSTR>(&ModuleFolder), &self);
  if (HANDLE thread = CreateThread(nullptr, 0, &FlushLoop, &sink_, 0, nullptr)) CloseHandle(thread);
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
