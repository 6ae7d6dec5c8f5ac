#pragma once

#include <cstdint>

namespace calder {

// Microseconds since this process was created: one clock whose origin every
// module of the process reads alike (the recorders, calder.exe), so the
// traces of one run share it. It never goes back within a module.
int64_t MicrosecondsSinceProcessStart();

}  // namespace calder
