#include "touchpad/tp_arguments.h"

#include <cstdlib>
#include <cstring>

namespace calder {

namespace {

bool Is(const char* arg, const char* option) {
  return arg != nullptr && std::strcmp(arg, option) == 0;
}

}  // namespace

TPSettings ParseTPArguments(int argc, char* argv[]) {
  TPSettings settings;
  for (int i = 2; i < argc; ++i) {
    const char* arg = argv[i];
    const bool hasNext = i + 1 < argc;
    if (Is(arg, "--hw-id") && hasNext) {
      settings.hwId = argv[++i] != nullptr ? argv[i] : "";
    } else if (Is(arg, "--chip-id") && hasNext) {
      const char* value = argv[++i];
      settings.chipId = value != nullptr ? static_cast<uint8_t>(std::strtol(value, nullptr, 16) & 0xFF) : 0;
    } else if (Is(arg, "--no-boot")) {
      settings.haveBoot = 0;
    } else if (arg != nullptr && arg[0] != '-') {
      settings.hasFile = true;
      settings.file = arg;
    }
  }
  return settings;
}

}  // namespace calder
