#include "tools/fleet/simulated_machine.h"

#include <fstream>
#include <system_error>

#include "base/firmware_discovery.h"
#include "check/console_silencer.h"
#include "driver/calder.h"
#include "driver/entry_run.h"
#include "platform/environment.h"
#include "platform/session_end.h"
#include "sim/protocol_violations.h"
#include "tools/fleet/log_writer.h"

namespace calder::fleet {

namespace fs = std::filesystem;

namespace {

constexpr char kTouchpadFileName[] = "tp_fw.bin";

std::string Pattern(size_t size, int step, int offset, int modulus) {
  std::string bytes(size, '\0');
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * step + offset) % modulus + 1);
  return bytes;
}

// The entry's platform of a laptop nobody watches: no gesture helper, a
// window that shows nothing and never ends the session, the worker run at once.
class UnwatchedEntry : public EntryPlatform, public ShutdownBlocker {
 public:
  void* FindGestureHelper() override { return nullptr; }
  void TellGestureHelper(void*, bool) override {}
  void* ShowProgressWindow(SessionEndListener&) override { return this; }
  ShutdownBlocker& ShutdownBlockerFor(void*) override { return *this; }
  void PostProgress(void*, int) override {}
  void PostClose(void*) override {}
  void RunMessageLoop() override {}
  bool StartWorker(std::function<void()> work) override { return work(), true; }
  void FineTimer(bool) override {}
  void Block(const wchar_t*) override {}
  void Unblock() override {}
  void EndProcess(int) override {}
};

class FixedLock : public UpdateLock {
 public:
  explicit FixedLock(bool held) : held_(held) {}
  LockAttempt Acquire() override { return {held_ ? LockOutcome::Held : LockOutcome::Taken, 0}; }
  void Release() override {}

 private:
  bool held_;
};

class FixedPower : public PowerStatusSource {
 public:
  explicit FixedPower(PowerStatus status) : status_(status) {}
  PowerStatus Read() override { return status_; }

 private:
  PowerStatus status_;
};

}  // namespace

std::string TouchpadImage() { return Pattern(0x4000, 13, 5, 255); }
std::string ForceImage() { return Pattern(0x6000 - 24, 7, 1, 251); }

SimulatedMachine::SimulatedMachine(fs::path stage) : stage_(std::move(stage)) {
  // The program joins its paths with "\": where that is no separator, each
  // firmware file is one file of the stage named as the program opens it.
  moduleDir_ = (stage_ / "calder").string();
  touchpadImage = TouchpadImage();
  forceImage = ForceImage();
}

std::u16string SimulatedMachine::ModulePathW() {
  const std::string narrow = ModulePathA();
  return std::u16string(narrow.begin(), narrow.end());
}

bool SimulatedMachine::ListFolder(const std::string& pattern,
                                  const std::function<bool(const FolderEntry&)>& visit) {
  const std::string tp = JoinFolderAndName(moduleDir_ + kTouchpadFirmwareFolder, "*");
  const std::string force = JoinFolderAndName(moduleDir_ + kForceFirmwareFolder, "*");
  std::optional<std::string> name;
  if (pattern == tp && touchpadImage) name = kTouchpadFileName;
  if (pattern == force && forceImage) name = forceFileName;
  if (!name) return false;
  visit(FolderEntry{*name, false});
  return true;
}

void SimulatedMachine::StageFiles() {
  const auto put = [&](const char* folder, const std::string& name, const std::optional<std::string>& bytes) {
    if (!bytes) return;
    std::ofstream file(JoinFolderAndName(moduleDir_ + folder, name), std::ios::binary | std::ios::trunc);
    file.write(bytes->data(), static_cast<std::streamsize>(bytes->size()));
  };
  put(kTouchpadFirmwareFolder, kTouchpadFileName, touchpadImage);
  put(kForceFirmwareFolder, forceFileName, forceImage);
}

std::vector<std::string> SimulatedMachine::Run(const std::vector<std::string>& args) {
  StageFiles();
  laptop.files = this;
  laptop.process = this;
  laptop.com = this;
  laptop.bridge = bridgeLibraryInstalled ? &sensor : nullptr;
  laptop.upgrade = upgradeLibraryInstalled ? &touchpad : nullptr;
  ScopedEnvironment scope(laptop.Wiring());

  LogWriter log(clock, start);
  std::vector<std::string> argv = {"calder.exe"};
  argv.insert(argv.end(), args.begin(), args.end());
  std::vector<char*> pointers;
  for (std::string& arg : argv) pointers.push_back(&arg[0]);
  pointers.push_back(nullptr);
  UnwatchedEntry entry;
  FixedLock lock(lockHeld);
  FixedPower battery(power);
  const EntrySeams seams{entry, &lock, &battery, &calder::main};
  {
    check::ConsoleSilencer quiet;
    result_ = RunEntry(seams, ReadCommandLine(static_cast<int>(argv.size()), pointers.data()));
  }
  // Faults are on purpose here: what the models refused is other tests' concern.
  sim::TakeViolations();
  return log.lines();
}

}  // namespace calder::fleet
