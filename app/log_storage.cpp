// The logging library's shared storage, created once during static
// initialisation before WinMain runs.
#include "app/log.h"

INITIALIZE_EASYLOGGINGPP
