// ReadFW's three queries against the touch-device model, with the input
// reports (and some output report results) chosen by the fuzzer: kept,
// bit-flipped, replaced, zeroed or failed. Each query must end on virtual
// time with a well-formed result, and the same input must give the same
// results twice.

#include <cstddef>
#include <cstdint>
#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <string>
#include <vector>

#include "hid/read_fw.h"
#include "platform/clock.h"
#include "sim/protocol_violations.h"
#include "sim/touch_device.h"
#include "tests/fuzz/fuzz_input.h"

namespace calder {
namespace {

void Check(bool ok, const char* what) { fuzz::Check(ok, "hid_report_fuzz", what); }

// The touch device with reports the fuzzer bends on their way.
class FuzzedDevice : public sim::TouchDevice {
 public:
  FuzzedDevice(VirtualClock& clock, fuzz::FuzzInput& in) : TouchDevice(clock), in_(in) {}
  bool SetOutputReport(HidHandle handle, const uint8_t* report, size_t size) override {
    // One send in sixteen is refused before it reaches the device.
    return in_.Take() % 16 != 15 && TouchDevice::SetOutputReport(handle, report, size);
  }
  bool GetInputReport(HidHandle handle, uint8_t* report, size_t size) override {
    // The device answers first, so time moves on as it would.
    const bool answered = TouchDevice::GetInputReport(handle, report, size);
    return fuzz::ApplyTamper(fuzz::TamperOf(in_.Take()), in_, report, size) && answered;
  }

 private:
  fuzz::FuzzInput& in_;
};

// `count` whole numbers in [low, high], separated by single `separator`s.
bool NumberList(const std::string& text, char separator, size_t count, long low, long high) {
  const char* p = text.c_str();
  for (size_t i = 0; i < count; ++i) {
    if (i > 0 && *p++ != separator) return false;
    if (!std::isdigit(static_cast<unsigned char>(p[*p == '-' ? 1 : 0]))) return false;
    char* end = nullptr;
    const long value = std::strtol(p, &end, 10);
    if (value < low || value > high) return false;
    p = end;
  }
  return *p == '\0';
}

bool Version(const std::string& text) { return NumberList(text, '.', 4, 0, 255); }

struct Results {
  std::array<bool, 3> ok;
  std::array<std::string, 5> text;  // touch version and error, force version and error, calibration
  uint64_t elapsedMs;
  bool operator==(const Results& o) const { return ok == o.ok && text == o.text && elapsedMs == o.elapsedMs; }
};

Results Run(const uint8_t* data, size_t size) {
  fuzz::FuzzInput in(data, size);
  VirtualClock clock;
  FuzzedDevice device(clock, in);
  device.reportTimeMs = 331;  // a time-out in a dozen polls
  // Only the touch device's two collections: the path matching has its own tests.
  std::vector<sim::HidInterface>& list = device.interfaces;
  list.erase(std::remove_if(list.begin(), list.end(),
                            [](const sim::HidInterface& i) { return i.collection == sim::Collection::kOther; }),
             list.end());
  const uint8_t machine = in.Take();
  if (machine & 1) device.RemoveCollection(u"col04");
  if (machine & 2) device.RemoveCollection(u"col05");
  Results r{};
  {
    ReadFW reader(device, clock);
    reader.Init();
    r.ok[0] = reader.ReadTouchVersion(r.text[0], r.text[1]);
    r.ok[1] = reader.ReadForceVersion(r.text[2], r.text[3]);
    r.ok[2] = reader.ReadCalibrateData(r.text[4]);
    reader.CloseHandles();
  }
  r.elapsedMs = clock.NowMs();
  Check(device.OpenHandleCount() == 0, "a collection handle was left open");
  Check(sim::TakeViolations().empty(), "an output report the device refuses");
  return r;
}

}  // namespace
}  // namespace calder

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace calder;
  const Results r = Run(data, size);
  const std::string& touchError = r.text[1];
  const std::string& forceError = r.text[3];
  Check(r.ok[0] ? Version(r.text[0]) && touchError.empty() : r.text[0].empty(), "touch version");
  Check(touchError.empty() || touchError == "err: open touch device fail", "touch version error");
  Check(r.ok[1] ? Version(r.text[2]) && forceError.empty() : r.text[2].empty() || r.text[2] == "0.0.0.0",
        "force version");
  Check(forceError.empty() || forceError == "err: open touch device fail" ||
            forceError == "err: read force device fail", "force version error");
  Check(r.ok[2] ? NumberList(r.text[4], ' ', 7, -32768, 32767)
                : r.text[4] == "err: open force device fail" || r.text[4] == "err: read force calibrate data fail",
        "calibration text");
  // Every poll is bounded by its time-out; one that never ended would hang here instead.
  Check(r.elapsedMs < 60000, "the queries took too long");
  Check(Run(data, size) == r, "the same input gave another answer");
  return 0;
}
