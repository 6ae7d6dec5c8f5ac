#include "report/platform_input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace calder::report {

std::vector<std::string> ProgramArguments(int argc, char** argv) {
  return std::vector<std::string>(argv + 1, argv + argc);
}

bool IsLink(const std::filesystem::path& path) {
  struct stat facts;
  return ::lstat(path.c_str(), &facts) != 0 || S_ISLNK(facts.st_mode);
}

InputFile::~InputFile() { Close(); }

bool InputFile::Open(const std::filesystem::path& path, std::string* reason) {
  Close();
  // Non-blocking, so a FIFO planted under a log's name cannot stall the run.
  fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd_ < 0) {
    *reason = std::strerror(errno);
    return false;
  }
  struct stat facts;
  if (::fstat(fd_, &facts) != 0 || !S_ISREG(facts.st_mode)) {
    *reason = "not a regular file";
    Close();
    return false;
  }
  return true;
}

long InputFile::Read(char* buffer, size_t size, std::string* reason) {
  for (;;) {
    const ssize_t n = ::read(fd_, buffer, size);
    if (n >= 0) return static_cast<long>(n);
    if (errno == EINTR) continue;
    *reason = std::strerror(errno);
    return -1;
  }
}

void InputFile::Close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

}  // namespace calder::report
