#include "sim/touch_device.h"

#include <cstdio>
#include <cstring>

#include "sim/protocol_violations.h"

namespace calder::sim {
namespace {

// The device's own copy of the report protocol, apart from hid/ on purpose:
// a wrong number there shows up as a violation here.
constexpr uint8_t kTouchReportId = 0x0E;
constexpr uint8_t kForceReportId = 0x0D;
constexpr uint8_t kCommandLength = 9;
constexpr uint8_t kRequestLength = 7;
constexpr uint8_t kCalibrationStart = 0x12;
constexpr uint8_t kCalibrationEnd = 0x13;
constexpr uint8_t kCalibrationRead = 0xBE;
// Bytes from here to the end of every output report must be zero.
constexpr size_t kZeroTailStart = 11;

const char16_t kHidClassSuffix[] = u"{4d1e55b2-f16f-11cf-88cb-001111000030}";

// A laptop's HID interfaces: a receiver, the touch device's collections in
// the order the platform lists them, and another vendor's "col05".
std::vector<HidInterface> DefaultInterfaces() {
  const auto path = [](const char16_t* id) { return std::u16string(u"hid#") + id + u"#" + kHidClassSuffix; };
  const uint16_t vid = TouchDevice::kVendorId;
  const uint16_t pid = TouchDevice::kProductId;
  return {
      {path(u"vid_046d&pid_c52b&mi_00#8&1f5e7a2&0&0000"), 0x046D, 0xC52B, Collection::kOther},
      {path(u"vid_347d&pid_7853&col01#7&2a41c8e&0&0000"), vid, pid, Collection::kOther},
      {path(u"vid_347d&pid_7853&col02#7&2a41c8e&0&0001"), vid, pid, Collection::kOther},
      {path(u"vid_347d&pid_7853&col03#7&2a41c8e&0&0002"), vid, pid, Collection::kOther},
      {path(u"vid_347d&pid_7853&col04#7&2a41c8e&0&0003"), vid, pid, Collection::kTouch},
      {path(u"vid_347d&pid_7853&col05#7&2a41c8e&0&0004"), vid, pid, Collection::kForce},
      {path(u"vid_06cb&pid_0001&col05#7&11d4e0f&0&0004"), 0x06CB, 0x0001, Collection::kOther},
  };
}

uint8_t ReportId(Collection collection) {
  return collection == Collection::kTouch ? kTouchReportId : kForceReportId;
}

// (XOR of the message after the checksum byte, plus 1) modulo 256.
bool ChecksumHolds(const uint8_t* report) {
  const size_t length = report[1];
  if (length < 2 || length + 2 > TouchDevice::kReportSize) return false;
  uint8_t x = 0;
  for (size_t i = 3; i <= 1 + length; ++i) x ^= report[i];
  return static_cast<uint8_t>(x + 1) == report[2];
}

bool IsRequest(const uint8_t* report, uint8_t what, uint8_t target) {
  return report[1] == kRequestLength && report[7] == what && report[8] == target;
}

bool ZeroTail(const uint8_t* report) {
  for (size_t i = kZeroTailStart; i < TouchDevice::kReportSize; ++i) {
    if (report[i] != 0) return false;
  }
  return true;
}

void Refuse(const char* collection, const std::string& what, const uint8_t* report, size_t size) {
  const std::vector<uint8_t> bytes(report, report + size);
  RecordViolation(std::string("touch device ") + collection + ": " + what + ": " +
                  HexBytes(bytes, size));
}

void CopyAnswer(const std::vector<uint8_t>& answer, uint8_t* report) {
  for (size_t i = 0; i < answer.size() && i + 1 < TouchDevice::kReportSize; ++i) {
    report[i + 1] = answer[i];
  }
}

}  // namespace

TouchDevice::TouchDevice(Clock& clock, std::u16string pathPrefix)
    : interfaces(DefaultInterfaces()), clock_(clock), prefix_(std::move(pathPrefix)) {}

TouchDevice::TouchDevice(VirtualClock& clock, std::u16string pathPrefix)
    : TouchDevice(static_cast<Clock&>(clock), std::move(pathPrefix)) {
  virtualClock_ = &clock;
}

void TouchDevice::RemoveCollection(const std::u16string& tag) {
  std::vector<HidInterface> kept;
  for (const HidInterface& i : interfaces) {
    if (i.name.find(tag) == std::u16string::npos) kept.push_back(i);
  }
  interfaces = kept;
}

void TouchDevice::SetProbes(const std::u16string& tag, bool probes) {
  for (HidInterface& i : interfaces) {
    if (i.name.find(tag) != std::u16string::npos) i.probes = probes;
  }
}

void TouchDevice::SetOpensReadWrite(const std::u16string& tag, bool opens) {
  for (HidInterface& i : interfaces) {
    if (i.name.find(tag) != std::u16string::npos) i.opensReadWrite = opens;
  }
}

std::vector<std::u16string> TouchDevice::Paths() const {
  std::vector<std::u16string> paths;
  for (const HidInterface& i : interfaces) paths.push_back(prefix_ + i.name);
  return paths;
}

const HidInterface* TouchDevice::Find(const std::u16string& path) const {
  if (path.compare(0, prefix_.size(), prefix_) != 0) return nullptr;
  for (const HidInterface& i : interfaces) {
    if (path.compare(prefix_.size(), std::u16string::npos, i.name) == 0) return &i;
  }
  return nullptr;
}

bool TouchDevice::Receive(const std::u16string& path, const uint8_t* report, size_t size) {
  const HidInterface* target = Find(path);
  if (target == nullptr) return false;
  const char* name = target->collection == Collection::kTouch   ? "col04"
                     : target->collection == Collection::kForce ? "col05"
                                                                : "other collection";
  if (size != kReportSize) {
    Refuse(name, "output report of " + std::to_string(size) + " bytes", report, size);
    return false;
  }
  if (target->collection == Collection::kOther || report[0] != ReportId(target->collection)) {
    Refuse(name, "unknown report id", report, size);
    return false;
  }
  sent.push_back({target->collection, std::vector<uint8_t>(report, report + size)});
  if (!ZeroTail(report)) Refuse(name, "bytes 11 to 32 not zero", report, size);
  if (!ChecksumHolds(report)) {
    Refuse(name, "bad checksum", report, size);
    return true;  // the firmware drops it
  }
  const bool known = target->collection == Collection::kTouch ? HandleTouchReport(report)
                                                                : HandleForceReport(report);
  if (!known) Refuse(name, "unknown command", report, size);
  return true;
}

bool TouchDevice::HandleTouchReport(const uint8_t* report) {
  const bool version = IsRequest(report, 0x04, 0xB6);
  touchPending_ = version ? Pending::kTouchVersion : Pending::kNone;
  return version;
}

bool TouchDevice::HandleForceReport(const uint8_t* report) {
  forcePending_ = Pending::kNone;
  if (report[1] == kCommandLength) {
    const uint8_t code = report[9];
    if (code != kCalibrationStart && code != kCalibrationEnd && code != kCalibrationRead) {
      return false;
    }
    if (static_cast<uint8_t>(code + report[10]) != 0) return false;
    lastCommand_ = code;
    commandAt_ = clock_.NowMs();
    if (code == kCalibrationStart) calibrationMode_ = true;
    if (code == kCalibrationEnd) calibrationMode_ = false;
  } else if (IsRequest(report, 0x04, 0x10)) {
    forcePending_ = Pending::kForceVersion;
  } else if (IsRequest(report, 0x02, 0x02)) {
    forcePending_ = Pending::kStatus;
  } else if (IsRequest(report, 0x15, kCalibrationRead)) {
    forcePending_ = Pending::kData;
  } else {
    return false;
  }
  return true;
}

bool TouchDevice::CommandDone() const {
  if (lastCommand_ < 0 || neverReady.count(static_cast<uint8_t>(lastCommand_)) != 0) return false;
  // The block is only measured inside the calibration mode.
  if (lastCommand_ == kCalibrationRead && !calibrationMode_) return false;
  return clock_.NowMs() >= commandAt_ + commandDelayMs;
}

void TouchDevice::FillCalibrationBlock(uint8_t* report) {
  if (!CommandDone() || lastCommand_ != kCalibrationRead || blocksNotReady > 0) {
    if (blocksNotReady > 0) --blocksNotReady;
    return;  // byte 20 stays clear
  }
  int sum = 0;
  for (size_t k = 0; k < calibration.size(); ++k) {
    report[4 + 2 * k] = static_cast<uint8_t>(calibration[k] & 0xFF);
    report[5 + 2 * k] = static_cast<uint8_t>(calibration[k] >> 8);
    sum += static_cast<int16_t>(calibration[k]);
  }
  const uint16_t checksum = static_cast<uint16_t>(-sum);
  report[18] = static_cast<uint8_t>(checksum & 0xFF);
  report[19] = static_cast<uint8_t>(checksum >> 8);
  // A bad block is wrong in one checksum byte only: the high one, then the low.
  if (blocksWithBadChecksum > 0) {
    report[blocksWithBadChecksum % 2 == 0 ? 19 : 18] ^= 0xFF;
    --blocksWithBadChecksum;
  }
  report[20] = 0x01;
}

bool TouchDevice::Answer(const std::u16string& path, uint8_t* report, size_t size) {
  const HidInterface* target = Find(path);
  if (target == nullptr || target->collection == Collection::kOther) return false;
  if (size != kReportSize || report[0] != ReportId(target->collection)) {
    Refuse(target->collection == Collection::kTouch ? "col04" : "col05", "input report request with a wrong size or id",
           report, size);
    return false;
  }
  ++inputReports;
  std::memset(report + 1, 0, size - 1);
  const Pending pending =
      target->collection == Collection::kTouch ? touchPending_ : forcePending_;
  switch (pending) {
    case Pending::kTouchVersion:
      if (!touchAnswer.empty()) {
        CopyAnswer(touchAnswer, report);
        break;
      }
      report[1] = 0x06;
      report[2] = 0xB6;
      // The touch firmware lists its fields out of order: 7.6.4.5.
      report[7] = touchVersion[0];
      report[6] = touchVersion[1];
      report[4] = touchVersion[2];
      report[5] = touchVersion[3];
      break;
    case Pending::kForceVersion:
      if (!forceAnswer.empty()) {
        CopyAnswer(forceAnswer, report);
        break;
      }
      report[1] = 0x06;
      report[2] = 0x16;
      for (size_t k = 0; k < 4; ++k) report[4 + k] = forceVersion[k];
      break;
    case Pending::kStatus:
      report[1] = 0x06;
      // Busy shows in byte 4 or byte 5, in turn; done is both clear.
      if (!CommandDone()) report[4 + busyAnswers_++ % 2] = 0x01;
      break;
    case Pending::kData:
      report[1] = 0x13;
      FillCalibrationBlock(report);
      break;
    case Pending::kNone:
      break;
  }
  return true;
}

std::vector<std::u16string> TouchDevice::InterfacePaths() {
  if (enumerationFails) return {};
  return Paths();
}

bool TouchDevice::ProbeAttributes(const std::u16string& path, HidAttributes* attributes) {
  probed.push_back(path);
  const HidInterface* target = Find(path);
  if (target == nullptr || !target->probes) return false;
  attributes->vendorId = target->vendorId;
  attributes->productId = target->productId;
  return true;
}

HidHandle TouchDevice::OpenReadWrite(const std::u16string& path) {
  const HidInterface* target = Find(path);
  if (target == nullptr || !target->opensReadWrite) return InvalidHidHandle();
  opened.push_back(path);
  const HidHandle handle = reinterpret_cast<HidHandle>(nextHandle_);
  nextHandle_ += 4;
  handles_[handle] = path;
  return handle;
}

bool TouchDevice::Close(HidHandle handle) {
  if (handles_.erase(handle) == 0) {
    ++failedCloses;
    return false;
  }
  ++closes;
  return true;
}

bool TouchDevice::SetOutputReport(HidHandle handle, const uint8_t* report, size_t size) {
  const auto it = handles_.find(handle);
  if (it == handles_.end() || !Receive(it->second, report, size)) {
    ++failedSends;
    return false;
  }
  return true;
}

bool TouchDevice::GetInputReport(HidHandle handle, uint8_t* report, size_t size) {
  if (virtualClock_ != nullptr) virtualClock_->Advance(reportTimeMs);
  const auto it = handles_.find(handle);
  if (it == handles_.end() || !Answer(it->second, report, size)) {
    ++failedReads;
    return false;
  }
  return true;
}

std::string HexBytes(const std::vector<uint8_t>& bytes, size_t count) {
  std::string out;
  char hex[4];
  for (size_t i = 0; i < count && i < bytes.size(); ++i) {
    std::snprintf(hex, sizeof hex, "%02X", bytes[i]);
    if (!out.empty()) out += ' ';
    out += hex;
  }
  return out;
}

}  // namespace calder::sim
