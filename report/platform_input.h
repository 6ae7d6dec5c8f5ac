#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace calder::report {

// The command line's arguments as UTF-8 where the platform's own are wide
// (Windows), as given elsewhere; paths are then built with u8path.
std::vector<std::string> ProgramArguments(int argc, char** argv);

// Whether a folder's entry is a symbolic link or another reparse point (a
// junction, a mount point); true also when that cannot be told.
bool IsLink(const std::filesystem::path& path);

// One regular file read from start to end; never blocks on a pipe or device.
class InputFile {
 public:
  InputFile() = default;
  ~InputFile();
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  // False with a reason ("Permission denied", "not a regular file", ...).
  bool Open(const std::filesystem::path& path, std::string* reason);
  // Bytes read, 0 at the end, -1 on an error (with a reason).
  long Read(char* buffer, size_t size, std::string* reason);
  void Close();

 private:
#ifdef _WIN32
  void* handle_ = nullptr;  // a HANDLE
#else
  int fd_ = -1;
#endif
};

}  // namespace calder::report
