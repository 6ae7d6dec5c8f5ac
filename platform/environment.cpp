#include "platform/environment.h"

#include "platform/clock.h"
#include "platform/progress.h"

namespace calder {

Environment& Env() {
  static Environment env;
  return env;
}

ScopedEnvironment::ScopedEnvironment(const Environment& env) : saved_(Env()) { Env() = env; }

ScopedEnvironment::~ScopedEnvironment() { Env() = saved_; }

void SleepMs(unsigned ms) {
  // A missing clock must never turn a device pause into no pause.
  static SteadyClock fallback;
  Clock* clock = Env().clock != nullptr ? Env().clock : &fallback;
  clock->Sleep(ms);
}

void PostProgress(int percent) {
  if (Env().progress != nullptr) Env().progress->Post(percent);
}

}  // namespace calder
