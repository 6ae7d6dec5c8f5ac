// The process entry: WinMain and the run around the driver routine. The file
// shares its name with the driver's so that the entry's log lines read calder.cpp.
#include <windows.h>
#include <mmsystem.h>

#include <thread>

#include "app/calder.h"
#include "app/log.h"
#include "app/logging.h"
#include "platform/win32/win32_seams.h"


namespace {

bool IsVersionQuery(int argc, char** argv) {
  return argc == 2 && argv[1] != nullptr && std::string(argv[1]) == "--version";
}

}  // namespace

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) {
  calder::InstallWin32Environment();
  calder::InitLogging();
  LOG(INFO) << "Current version: " << calder::kToolVersion;

  if (IsVersionQuery(__argc, __argv)) return calder::main(__argc, __argv);

  // Window mode: the progress window arrives with its own change; until then
  // the worker runs alone and the entry thread waits for its result.
  int rc = 1;
  std::thread worker([&rc] {
    timeBeginPeriod(1);
    rc = calder::main(__argc, __argv);
    LOG(INFO) << "main returned: " << rc;
    timeEndPeriod(1);
  });
  worker.join();
  return rc;
}
