#pragma once

namespace calder {

class Clock;
class ProgressPoster;
class FileSystem;
class ProcessInfo;
class PowerRequests;
class ComRuntime;
class BridgeLibrary;   // btl_hid_transfer.dll
class UpgradeLibrary;  // btl_upgrade.dll
class HidHost;         // SetupAPI + hid.dll
class WmiConnector;    // WMI locator and COM security set-up

// The platform seams the core reaches where a fixed signature leaves no room
// to pass them in. WinMain installs the Win32 set; tests install doubles.
struct Environment {
  Clock* clock = nullptr;
  ProgressPoster* progress = nullptr;
  FileSystem* files = nullptr;
  ProcessInfo* process = nullptr;
  PowerRequests* power = nullptr;
  ComRuntime* com = nullptr;
  BridgeLibrary* bridge = nullptr;
  UpgradeLibrary* upgrade = nullptr;
  HidHost* hid = nullptr;
  WmiConnector* wmi = nullptr;
};

Environment& Env();

// Installs an environment for the lifetime of the object, then restores the
// previous one. Tests use it; WinMain installs once and never restores.
class ScopedEnvironment {
 public:
  explicit ScopedEnvironment(const Environment& env);
  ~ScopedEnvironment();
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

 private:
  Environment saved_;
};

// Sleeps on the installed clock.
void SleepMs(unsigned ms);

}  // namespace calder
