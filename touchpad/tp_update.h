#pragma once

namespace calder {

// The touchpad upgrade command interpreter: 0 for success, 1 for failure.
int TPMain(int argc, char* argv[]);

}  // namespace calder
