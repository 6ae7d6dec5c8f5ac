#include "report/platform_input.h"

#include <windows.h>
#include <shellapi.h>

namespace calder::report {

namespace {

std::string Utf8(const wchar_t* text) {
  const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  if (size <= 1) return std::string();
  std::string out(static_cast<size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text, -1, &out[0], size, nullptr, nullptr);
  out.resize(static_cast<size_t>(size - 1));
  return out;
}

std::string ErrorText(DWORD code) {
  wchar_t* text = nullptr;
  const DWORD length = FormatMessageW(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
      code, 0, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
  std::string out = length > 0 ? Utf8(text) : std::string();
  if (text != nullptr) LocalFree(text);
  while (!out.empty() && (out.back() == '\n' || out.back() == '\r' || out.back() == ' ')) out.pop_back();
  return out.empty() ? "error " + std::to_string(code) : out;
}

}  // namespace

// The narrow argv holds the ANSI code page's lossy view of the paths.
std::vector<std::string> ProgramArguments(int argc, char** argv) {
  int count = 0;
  wchar_t** wide = CommandLineToArgvW(GetCommandLineW(), &count);
  if (wide == nullptr) return std::vector<std::string>(argv + 1, argv + argc);
  std::vector<std::string> args;
  for (int i = 1; i < count; ++i) args.push_back(Utf8(wide[i]));
  LocalFree(wide);
  return args;
}

bool IsLink(const std::filesystem::path& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

InputFile::~InputFile() { Close(); }

bool InputFile::Open(const std::filesystem::path& path, std::string* reason) {
  Close();
  HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                            nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    *reason = ErrorText(GetLastError());
    return false;
  }
  if (GetFileType(file) != FILE_TYPE_DISK) {
    CloseHandle(file);
    *reason = "not a regular file";
    return false;
  }
  handle_ = file;
  return true;
}

long InputFile::Read(char* buffer, size_t size, std::string* reason) {
  DWORD got = 0;
  const DWORD want = size > 0x40000000 ? 0x40000000 : static_cast<DWORD>(size);
  if (!ReadFile(static_cast<HANDLE>(handle_), buffer, want, &got, nullptr)) {
    *reason = ErrorText(GetLastError());
    return -1;
  }
  return static_cast<long>(got);
}

void InputFile::Close() {
  if (handle_ != nullptr) CloseHandle(static_cast<HANDLE>(handle_));
  handle_ = nullptr;
}

}  // namespace calder::report
