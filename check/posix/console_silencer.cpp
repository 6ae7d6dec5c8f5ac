#include "check/console_silencer.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

namespace calder::check {

ConsoleSilencer::ConsoleSilencer() {
  std::fflush(stdout);
  const int null = open("/dev/null", O_WRONLY);
  if (null < 0) return;
  saved_ = dup(STDOUT_FILENO);
  if (saved_ >= 0) dup2(null, STDOUT_FILENO);
  close(null);
}

ConsoleSilencer::~ConsoleSilencer() {
  if (saved_ < 0) return;
  std::fflush(stdout);
  dup2(saved_, STDOUT_FILENO);
  close(saved_);
}

}  // namespace calder::check
