#include "hid/read_fw.h"

#include <array>
#include <cstdio>

#include "hid/hid_reports.h"
#include "platform/environment.h"

namespace calder {
namespace {

using Report = std::array<uint8_t, kHidReportSize>;

constexpr int kStatusAttempts = 10;
constexpr uint32_t kTouchVersionWaitMs = 30;
constexpr uint32_t kForceVersionWaitMs = 150;
constexpr uint32_t kBeginWaitMs = 150;
constexpr uint32_t kEndWaitMs = 6;
constexpr uint32_t kBeforeRawReadMs = 300;
constexpr uint32_t kAfterCommandBEMs = 30;
constexpr uint32_t kStatusPollMs = 1;
constexpr uint32_t kBeforeDataRequestMs = 100;
constexpr uint32_t kBadChecksumPollMs = 10;
constexpr double kCalibrationTimeoutSeconds = 3.0;

const char kOpenTouchFail[] = "err: open touch device fail";
const char kReadForceFail[] = "err: read force device fail";
const char kOpenForceFail[] = "err: open force device fail";
const char kReadCalibrationFail[] = "err: read force calibrate data fail";
const char kCalibrationSizeWrong[] = "calibrate data size not 7";

template <size_t N>
void Put(Report& report, const std::array<uint8_t, N>& bytes) {
  for (size_t i = 0; i < N; ++i) report[i] = bytes[i];
}

bool Send(DevHid& device, const Report& report) {
  return device.host().SetOutputReport(device.handle, report.data(), report.size());
}

bool Fetch(DevHid& device, uint8_t reportId, Report& report) {
  report[0] = reportId;
  return device.host().GetInputReport(device.handle, report.data(), report.size());
}

bool StatusDone(const Report& report) { return report[4] == 0x00 && report[5] == 0x00; }

std::string DottedVersion(unsigned a, unsigned b, unsigned c, unsigned d) {
  char text[128];
  std::snprintf(text, sizeof text, "%d.%d.%d.%d", a, b, c, d);
  return text;
}

// Kept as the field sees it: whole seconds, and only past T, so a time-out of
// 3.0 gives up after 4 s.
bool TimedOut(Clock& clock, uint64_t startMs, double timeoutSeconds) {
  const uint64_t wholeSeconds = (clock.NowMs() - startMs) / 1000;
  return static_cast<double>(wholeSeconds) > timeoutSeconds;
}

Clock& InstalledClock() {
  static SteadyClock fallback;
  return Env().clock != nullptr ? *Env().clock : fallback;
}

}  // namespace

ReadFW::ReadFW() : clock_(InstalledClock()) {}

ReadFW::ReadFW(HidHost& host, Clock& clock) : touch(host), force(host), clock_(clock) {}

ReadFW::~ReadFW() = default;

void ReadFW::Init() {
  touch.GetDevicePaths();
  touch.Open(kTouchDeviceVendorId, kTouchDeviceProductId, kTouchCollectionTag);
  force.GetDevicePaths();
  force.Open(kTouchDeviceVendorId, kTouchDeviceProductId, kForceCollectionTag);
}

bool ReadFW::ReadTouchVersion(std::string& version, std::string& error) {
  version.clear();
  error.clear();
  // Kept as the field sees it: the gate looks at the force collection although
  // the traffic goes to the touch collection.
  if (!force.IsOpen()) {
    error = kOpenTouchFail;
    return false;
  }
  Report request{};
  Put(request, kTouchVersionRequest);
  Send(touch, request);
  clock_.Sleep(kTouchVersionWaitMs);
  Report answer{};
  Fetch(touch, kTouchReportId, answer);
  if (answer[1] != 0x06 || answer[2] != 0xB6) return false;
  version = DottedVersion(answer[7], answer[6], answer[4], answer[5]);
  return true;
}

bool ReadFW::ReadForceVersion(std::string& version, std::string& error) {
  version.clear();
  error.clear();
  // Kept as the field sees it: crossed the other way, the touch collection gates
  // the force query.
  if (!touch.IsOpen()) {
    error = kOpenTouchFail;
    return false;
  }
  Report request{};
  Put(request, kForceVersionRequest);
  Send(force, request);
  clock_.Sleep(kForceVersionWaitMs);
  Report answer{};
  Fetch(force, kForceReportId, answer);
  if (answer[1] != 0x06) return false;
  version = DottedVersion(answer[4], answer[5], answer[6], answer[7]);
  if (version == "0.0.0.0") {
    error = kReadForceFail;
    return false;
  }
  return true;
}

bool ReadFW::BeginCalibrateRead() {
  if (!force.IsOpen()) return false;
  Report request{};
  Report answer{};
  for (int attempt = 0; attempt < kStatusAttempts; ++attempt) {
    Put(request, kCommand12);
    Send(force, request);
    clock_.Sleep(kBeginWaitMs);
    Put(request, kStatusAfterCommand12);
    Send(force, request);
    clock_.Sleep(kBeginWaitMs);
    Fetch(force, kForceReportId, answer);
    if (StatusDone(answer)) return true;
  }
  return false;
}

bool ReadFW::EndCalibrateRead() {
  if (!force.IsOpen()) return false;
  Report request{};
  Report answer{};
  Put(request, kCommand13);
  Send(force, request);
  clock_.Sleep(kEndWaitMs);
  for (int attempt = 0; attempt < kStatusAttempts; ++attempt) {
    Put(request, kStatusAfterCommand13);
    Send(force, request);
    clock_.Sleep(kEndWaitMs);
    Fetch(force, kForceReportId, answer);
    if (StatusDone(answer)) return true;
  }
  return false;
}

bool ReadFW::ReadCalibrateRaw(std::vector<uint16_t>& values, double timeoutSeconds) {
  Report request{};
  Put(request, kCommandBE);
  if (!Send(force, request)) return false;
  clock_.Sleep(kAfterCommandBEMs);
  Report answer{};
  Put(request, kStatusAfterCommandBE);
  if (!Send(force, request)) return false;

  uint64_t start = clock_.NowMs();
  for (;;) {
    if (TimedOut(clock_, start, timeoutSeconds)) return false;
    Fetch(force, kForceReportId, answer);
    if (StatusDone(answer)) break;
    clock_.Sleep(kStatusPollMs);
  }

  clock_.Sleep(kBeforeDataRequestMs);
  answer.fill(0);
  Put(request, kCalibrationDataRequest);
  if (!Send(force, request)) return false;

  start = clock_.NowMs();
  for (;;) {
    if (TimedOut(clock_, start, timeoutSeconds)) return false;
    Fetch(force, kForceReportId, answer);
    if (answer[kCalibrationReadyByte] != 0x01) continue;
    values.clear();
    int sum = 0;
    for (size_t k = 0; k < kCalibrationValues; ++k) {
      const size_t at = kCalibrationFirstByte + 2 * k;
      const uint16_t value = static_cast<uint16_t>(answer[at] | answer[at + 1] << 8);
      values.push_back(value);
      sum += static_cast<int16_t>(value);
    }
    const uint16_t expected = static_cast<uint16_t>(-sum);
    if (answer[kCalibrationChecksumByte] != (expected & 0xFF) ||
        answer[kCalibrationChecksumByte + 1] != (expected >> 8)) {
      clock_.Sleep(kBadChecksumPollMs);
      continue;
    }
    // Kept as the field sees it: a block that sums to zero is refused, an all-zero
    // one included.
    if (expected != 0) return true;
  }
}

bool ReadFW::ReadCalibrateData(std::string& text) {
  text.clear();
  if (!force.IsOpen()) {
    text = kOpenForceFail;
    return false;
  }
  BeginCalibrateRead();
  clock_.Sleep(kBeforeRawReadMs);
  std::vector<uint16_t> values;
  const bool read = ReadCalibrateRaw(values, kCalibrationTimeoutSeconds);
  EndCalibrateRead();
  if (!read) {
    text = kReadCalibrationFail;
    return false;
  }
  if (values.size() != kCalibrationValues) {
    // Kept as the field sees it: a wrong count is reported, yet succeeds.
    text = kCalibrationSizeWrong;
    return true;
  }
  for (const uint16_t value : values) {
    if (!text.empty()) text += ' ';
    text += std::to_string(static_cast<int16_t>(value));
  }
  return true;
}

void ReadFW::CloseHandles() {
  if (touch.IsOpen()) touch.host().Close(touch.handle);
  if (force.IsOpen()) force.host().Close(force.handle);
}

}  // namespace calder
