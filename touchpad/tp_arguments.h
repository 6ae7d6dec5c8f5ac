#pragma once

#include <cstdint>
#include <string>

namespace calder {

// The interpreter's settings after the options.
// Kept as the field sees it: these defaults are in force, not the ones the
// usage text advertises (ACPI\BTLTP7853 and 42).
struct TPSettings {
  std::string hwId = "ACPI\\BLTP7853";
  uint8_t chipId = 0x41;
  int32_t haveBoot = 1;
  bool hasFile = false;
  std::string file;
};

// Reads the options from entries 2 .. argc-1; unknown options and a trailing
// "--hw-id" or "--chip-id" are ignored.
TPSettings ParseTPArguments(int argc, char* argv[]);

}  // namespace calder
