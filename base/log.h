#pragma once

// The one logging header of the program: easylogging++ with the build's
// fixed options (see CMakeLists.txt).
#include <easylogging++.h>
