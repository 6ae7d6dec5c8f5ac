#pragma once

// The one logging header of the program: easylogging++ with the build's
// fixed options (see CMakeLists.txt).
//
// The window's thread logs while the worker does, so every user of the
// logger, and the library's own source, must be built with its locks: a
// single file built without them would use the same logger unlocked.
#if !defined(ELPP_THREAD_SAFE)
#error "the logger is shared by threads: build with ELPP_THREAD_SAFE (calder_core defines it)"
#endif
#include <easylogging++.h>
static_assert(ELPP_THREADING_ENABLED, "easylogging++ built without its locks");
