// session_end
// Sends the "UIMainWindow" window what a forced end of the session brings:
// WM_QUERYENDSESSION, then WM_ENDSESSION with TRUE whatever it answered.
// Prints the answer to the query; exit code 0 once both were sent, 1 when
// there is no such window. wineboot cannot do this: it stops at a refusal.
#include <windows.h>

#include <cstdio>

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) {
  HWND window = FindWindowW(L"UIMainWindow", nullptr);
  if (window == nullptr) return 1;
  DWORD_PTR answer = 0;
  SendMessageTimeoutW(window, WM_QUERYENDSESSION, 0, 0, SMTO_ABORTIFHUNG, 5000, &answer);
  std::printf("query answered %lu\n", static_cast<unsigned long>(answer));
  std::fflush(stdout);
  // The receiver may end during this message: do not wait for it for long.
  DWORD_PTR ignored = 0;
  SendMessageTimeoutW(window, WM_ENDSESSION, TRUE, 0, SMTO_ABORTIFHUNG, 5000, &ignored);
  return 0;
}
