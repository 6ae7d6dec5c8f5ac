#include "tools/fleet/scenarios.h"

namespace calder::fleet {

namespace {

const std::vector<std::string> kUpdate = {"--update"};
const std::vector<std::string> kVersion = {"--version"};

void Nothing(SimulatedMachine&) {}
// Erased flash reads 0xFF and the image is no multiple of 40 bytes, so the
// read-back differs and the calibration read decides.
void ReadBackDiffers(SimulatedMachine& m) { m.sensor.faults.erasedValue = 0xFF; }

}  // namespace

void UseForceVersion(SimulatedMachine& m, int minor) {
  m.forceFileName = "1.0.2." + std::to_string(minor) + ".bin";
  m.sensor.version = {1, 0, 2, static_cast<uint8_t>(minor)};
  m.touch.forceVersion = {1, 0, 1, 9};
}

const std::vector<Scenario>& Scenarios() {
  static const std::vector<Scenario> scenarios = {
      {"success", 800, kUpdate, &Nothing},
      {"calibration-rescue", 60, kUpdate, &ReadBackDiffers},
      {"connect-retried", 30, kUpdate, [](SimulatedMachine& m) { m.sensor.faults.wrongConnectReplies = 2; }},
      {"com-init", 3, kUpdate, [](SimulatedMachine& m) { m.comResult = -2147417850; }},
      {"tp-library", 5, kUpdate, [](SimulatedMachine& m) { m.upgradeLibraryInstalled = false; }},
      {"tp-init", 15, kUpdate, [](SimulatedMachine& m) { m.touchpad.initResult = sim::kTpErrNoDevice; }},
      {"tp-no-file", 5, kUpdate, [](SimulatedMachine& m) { m.touchpadImage.reset(); }},
      {"tp-empty-file", 2, kUpdate,
       [](SimulatedMachine& m) {
         m.touchpadImage = std::string();
         m.touchpad.upgradeResult = 0;
       }},
      {"tp-upgrade", 10, kUpdate, [](SimulatedMachine& m) { m.touchpad.upgradeResult = 7; }},
      {"tp-checksum", 8, kUpdate, [](SimulatedMachine& m) { m.touchpad.checksumMode = sim::ChecksumMode::Full32; }},
      {"tp-checksum-read", 3, kUpdate, [](SimulatedMachine& m) { m.touchpad.checksumResult = -1; }},
      {"force-library", 5, kUpdate, [](SimulatedMachine& m) { m.bridgeLibraryInstalled = false; }},
      {"force-open", 15, kUpdate, [](SimulatedMachine& m) { m.sensor.faults.openResult = 7; }},
      {"force-no-file", 5, kUpdate, [](SimulatedMachine& m) { m.forceImage.reset(); }},
      {"force-connect", 20, kUpdate, [](SimulatedMachine& m) { m.sensor.faults.wrongConnectReplies = 6; }},
      {"force-write", 15, kUpdate,
       [](SimulatedMachine& m) {
         m.sensor.faults.rejectedBlock = 100;
         m.sensor.faults.rejections = 3;
       }},
      {"force-version", 10, kUpdate, [](SimulatedMachine& m) { m.sensor.version = {1, 0, 2, 1}; }},
      {"force-checksum", 10, kUpdate,
       [](SimulatedMachine& m) {
         ReadBackDiffers(m);
         m.touch.neverReady.insert(0xBE);
       }},
      {"version", 30, kVersion, &Nothing},
      {"version-read", 5, kVersion, [](SimulatedMachine& m) { m.touch.RemoveCollection(u"col05"); }},
      {"no-argument", 3, {}, &Nothing},
      {"invalid-input", 2, {"--UPDATE"}, &Nothing},
      {"another-instance", 10, kUpdate,
       [](SimulatedMachine& m) { m.lockHeld = true; }},
      {"battery-low", 10, kUpdate,
       [](SimulatedMachine& m) { m.power = {0, 0, 12}; }},
      // Never drawn: a version report refused by the lock, for the report's tests.
      {"version-refused", 0, kVersion, [](SimulatedMachine& m) { m.lockHeld = true; }},
  };
  return scenarios;
}

const Scenario* FindScenario(const std::string& name) {
  for (const Scenario& s : Scenarios()) {
    if (name == s.name) return &s;
  }
  return nullptr;
}

}  // namespace calder::fleet
