// ReadFW's three queries against the touch-device simulator, with the input
// reports (and some output report results) chosen by the fuzzer: kept,
// bit-flipped, replaced, zeroed or failed. Each query must end on virtual
// time with one of its defined results and texts.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "hid/read_fw.h"
#include "platform/clock.h"
#include "platform/hid_host.h"
#include "sim/touch_device.h"
#include "tests/fuzz/fuzz_input.h"

namespace calder {
namespace {

constexpr char kTarget[] = "hid_report_fuzz";

void Check(bool ok, const char* what) { fuzz::Check(ok, kTarget, what); }

// The touch device behind a HID host whose reports the fuzzer bends.
class FuzzedHost : public HidHost {
 public:
  FuzzedHost(sim::TouchDevice& device, fuzz::FuzzInput& in) : device_(device), in_(in) {}

  std::vector<std::u16string> InterfacePaths() override { return device_.InterfacePaths(); }
  bool ProbeAttributes(const std::u16string& path, HidAttributes* attributes) override {
    return device_.ProbeAttributes(path, attributes);
  }
  HidHandle OpenReadWrite(const std::u16string& path) override {
    return device_.OpenReadWrite(path);
  }
  bool Close(HidHandle handle) override { return device_.Close(handle); }

  bool SetOutputReport(HidHandle handle, const uint8_t* report, size_t size) override {
    // One send in sixteen is refused before it reaches the device.
    if (in_.Take() % 16 == 15) return false;
    return device_.SetOutputReport(handle, report, size);
  }

  bool GetInputReport(HidHandle handle, uint8_t* report, size_t size) override {
    // The device answers first, so time moves on as it would.
    const bool answered = device_.GetInputReport(handle, report, size);
    const fuzz::Tamper tamper = fuzz::TamperOf(in_.Take());
    return fuzz::ApplyTamper(tamper, in_, report, size) && answered;
  }

 private:
  sim::TouchDevice& device_;
  fuzz::FuzzInput& in_;
};

// "a.b.c.d", each field 0..255.
bool DottedVersion(const std::string& text) {
  unsigned a, b, c, d;
  char tail;
  return std::sscanf(text.c_str(), "%u.%u.%u.%u%c", &a, &b, &c, &d, &tail) == 4 &&
         a < 256 && b < 256 && c < 256 && d < 256 &&
         text.find_first_not_of("0123456789.") == std::string::npos;
}

// Seven signed 16-bit decimals, single blanks; their sum is not a multiple
// of 65536 (such blocks are refused on purpose).
bool CalibrationText(const std::string& text) {
  std::istringstream in(text);
  std::vector<long> values;
  long value;
  while (in >> value) values.push_back(value);
  if (!in.eof() || values.size() != 7) return false;
  std::string rebuilt;
  long sum = 0;
  for (long v : values) {
    if (v < -32768 || v > 32767) return false;
    rebuilt += (rebuilt.empty() ? "" : " ") + std::to_string(v);
    sum += v;
  }
  return rebuilt == text && sum % 65536 != 0;
}

}  // namespace
}  // namespace calder

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace calder;
  fuzz::FuzzInput in(data, size);
  VirtualClock clock;
  sim::TouchDevice device(clock);
  const uint8_t machine = in.Take();
  if (machine & 1) device.RemoveCollection(u"col04");
  if (machine & 2) device.RemoveCollection(u"col05");
  FuzzedHost host(device, in);

  {
    ReadFW reader(host, clock);
    reader.Init();

    std::string version = "x", error = "x";
    uint64_t start = clock.NowMs();
    if (reader.ReadTouchVersion(version, error)) {
      Check(DottedVersion(version) && error.empty(), "touch version: bad text on success");
    } else {
      Check(version.empty(), "touch version: text on failure");
      Check(error.empty() || error == "err: open touch device fail", "touch version: bad error");
    }
    Check(clock.NowMs() - start <= 31, "touch version took too long");

    start = clock.NowMs();
    if (reader.ReadForceVersion(version, error)) {
      Check(DottedVersion(version) && version != "0.0.0.0" && error.empty(),
            "force version: bad text on success");
    } else {
      const bool zero = version == "0.0.0.0" && error == "err: read force device fail";
      const bool closed = version.empty() && error == "err: open touch device fail";
      Check(zero || closed || (version.empty() && error.empty()), "force version: bad failure");
    }
    Check(clock.NowMs() - start <= 151, "force version took too long");

    start = clock.NowMs();
    std::string text = "x";
    if (reader.ReadCalibrateData(text)) {
      Check(CalibrationText(text), "calibration: bad values on success");
    } else {
      Check(text == "err: open force device fail" || text == "err: read force calibrate data fail",
            "calibration: bad failure text");
    }
    // About 11.5 s when every step times out; a poll that never ends would
    // hang here instead.
    Check(clock.NowMs() - start <= 13000, "calibration took too long");
    reader.CloseHandles();
  }
  Check(device.OpenHandleCount() == 0, "a collection handle was left open");
  return 0;
}
