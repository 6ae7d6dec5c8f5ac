#pragma once

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "report/platform_input.h"

namespace calder::report {

// Hands each line of a file to visit(line, whole), without its LF, in one
// pass over a fixed buffer. A line is not whole when the file ends inside it
// (a cut-off log) or it is longer than the buffer (then cut to the buffer's
// size and the rest of it skipped). False (with a reason) on a read error.
class LineReader {
 public:
  static constexpr size_t kBufferSize = 256 * 1024;

  template <typename Visit>
  bool ForEachLine(InputFile& file, Visit visit, std::string* reason) {
    size_t kept = 0;        // bytes of an unfinished line at the buffer's start
    bool skipping = false;  // inside the overflow of a cut line
    for (;;) {
      const long n = file.Read(buffer_.data() + kept, buffer_.size() - kept, reason);
      if (n < 0) return false;
      if (n == 0) break;
      const char* data = buffer_.data();
      const size_t end = kept + static_cast<size_t>(n);
      size_t start = 0;
      for (;;) {
        const void* lf = std::memchr(data + kept, '\n', end - kept);
        if (lf == nullptr) break;
        const size_t at = static_cast<const char*>(lf) - data;
        if (!skipping) visit(std::string_view(data + start, at - start), true);
        skipping = false;
        start = at + 1;
        kept = start;
      }
      kept = end - start;
      if (start > 0 && kept > 0) std::memmove(buffer_.data(), data + start, kept);
      if (kept == buffer_.size()) {
        if (!skipping) visit(std::string_view(buffer_.data(), kept), false);
        skipping = true;
        kept = 0;
      }
    }
    if (kept > 0 && !skipping) visit(std::string_view(buffer_.data(), kept), false);
    return true;
  }

 private:
  std::vector<char> buffer_ = std::vector<char>(kBufferSize);
};

}  // namespace calder::report
