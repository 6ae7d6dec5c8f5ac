#pragma once

#include <windows.h>

#include <string>

namespace calder {

// A file made new for writing, shared for reading only, or
// INVALID_HANDLE_VALUE. Whatever stands at the name already (a file, a
// link, even one that points nowhere) is neither followed nor overwritten,
// and a handle that is a reparse point all the same is closed, not used.
HANDLE CreateNewFile(const std::string& path);

}  // namespace calder
