#include "check/console_silencer.h"

#include <fcntl.h>
#include <io.h>

#include <cstdio>

namespace calder::check {

ConsoleSilencer::ConsoleSilencer() {
  std::fflush(stdout);
  const int null = _open("NUL", _O_WRONLY);
  if (null < 0) return;
  saved_ = _dup(_fileno(stdout));
  if (saved_ >= 0) _dup2(null, _fileno(stdout));
  _close(null);
}

ConsoleSilencer::~ConsoleSilencer() {
  if (saved_ < 0) return;
  std::fflush(stdout);
  _dup2(saved_, _fileno(stdout));
  _close(saved_);
}

}  // namespace calder::check
