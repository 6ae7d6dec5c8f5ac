// The logging library's shared storage, created once during static
// initialisation before WinMain runs.
#include "base/log.h"

INITIALIZE_EASYLOGGINGPP
