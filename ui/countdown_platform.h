#pragma once

#include <cstdint>

namespace calder {

// The only platform operations the restart countdown and the progress
// mapping use, so both run on virtual time in tests.
class CountdownPlatform {
 public:
  virtual ~CountdownPlatform() = default;
  // Posts WM_COUNTDOWN_TICK with the whole seconds left.
  virtual void PostTick(void* window, int seconds) = 0;
  virtual uint64_t NowMs() = 0;
  virtual void Sleep(uint32_t ms) = 0;
  virtual bool IsWindow(void* window) = 0;
  virtual void RunRestart(const char* command) = 0;
};

}  // namespace calder
