#pragma once

#include <string>

namespace calder::check {

// True for a library Windows itself provides (by name, any case): those are
// not shipped in the package and not looked for beside calder.exe.
bool IsWindowsSystemLibrary(const std::string& name);

}  // namespace calder::check
