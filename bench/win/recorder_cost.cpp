// The recorder's cost per bridge call: N btl_write_data calls of a Write
// flash frame through the btl_hid_transfer.dll given by full path, timed.
//   recorder_cost.exe DLL_PATH N   prints the microseconds per call
#include <windows.h>

#include <cstdio>
#include <cwchar>

int wmain(int argc, wchar_t** argv) {
  if (argc != 3) return 2;
  HMODULE dll = LoadLibraryExW(argv[1], nullptr,
                               LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32);
  if (dll == nullptr) return 1;
  using Plain = int (*)();
  using Write = int (*)(unsigned char*, int);
  const auto init = reinterpret_cast<Plain>(reinterpret_cast<void*>(GetProcAddress(dll, "btl_init_driver_7853")));
  const auto open = reinterpret_cast<Plain>(reinterpret_cast<void*>(GetProcAddress(dll, "btl_open_device")));
  const auto write = reinterpret_cast<Write>(reinterpret_cast<void*>(GetProcAddress(dll, "btl_write_data")));
  if (init == nullptr || open == nullptr || write == nullptr) return 1;
  init();
  open();
  // The sensor stays in its application and ignores the frame; only the
  // call's own cost is measured.
  unsigned char frame[81] = {0xFF, 0x57, 0x00, 0x00, 0x00, 0x01, 0x81, 0x03, 0x01, 68};
  const long n = std::wcstol(argv[2], nullptr, 10);
  LARGE_INTEGER frequency, start, end;
  QueryPerformanceFrequency(&frequency);
  QueryPerformanceCounter(&start);
  for (long i = 0; i < n; ++i) write(frame, sizeof frame);
  QueryPerformanceCounter(&end);
  std::printf("%.1f\n", (end.QuadPart - start.QuadPart) * 1e6 / frequency.QuadPart / (n > 0 ? n : 1));
  return 0;
}
