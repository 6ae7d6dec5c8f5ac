#include "sim/trace/hid_trace_decoder.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "hid/hid_reports.h"
#include "platform/hid_host.h"

namespace calder::replay {

namespace {

// The output reports the queries send, by their leading bytes; the status
// request after command 13 and after command BE are the same bytes.
struct NamedReport {
  const uint8_t* bytes;
  size_t size;
  const char* name;
};

template <size_t N>
NamedReport Named(const std::array<uint8_t, N>& bytes, const char* name) {
  return {bytes.data(), N, name};
}

const NamedReport kOutputReports[] = {
    Named(kTouchVersionRequest, "touch version request"),
    Named(kForceVersionRequest, "force version request"),
    Named(kCommand12, "calibration begin (command 12)"),
    Named(kStatusAfterCommand12, "status request"),
    Named(kCommand13, "calibration end (command 13)"),
    Named(kStatusAfterCommand13, "status request"),
    Named(kCommandBE, "calibration read (command BE)"),
    Named(kCalibrationDataRequest, "calibration data request"),
};

std::string Ok(const std::optional<int32_t>& rc) { return rc.value_or(0) != 0 ? " -> ok" : " -> failed"; }

std::string Version(unsigned a, unsigned b, unsigned c, unsigned d) {
  char text[32];
  std::snprintf(text, sizeof text, "%u.%u.%u.%u", a, b, c, d);
  return text;
}

std::string CalibrationBlock(const std::vector<uint8_t>& r) {
  if (r[kCalibrationReadyByte] != 0x01) return "calibration data not ready";
  std::string values;
  int sum = 0;
  for (size_t k = 0; k < kCalibrationValues; ++k) {
    const size_t at = kCalibrationFirstByte + 2 * k;
    const auto value = static_cast<int16_t>(r[at] | r[at + 1] << 8);
    sum += value;
    values += " " + std::to_string(value);
  }
  const auto expected = static_cast<uint16_t>(-sum);
  const bool holds = r[kCalibrationChecksumByte] == (expected & 0xFF) &&
                     r[kCalibrationChecksumByte + 1] == (expected >> 8);
  return "calibration data" + values + (holds ? "" : " (bad checksum)");
}

}  // namespace

std::string HidTraceDecoder::Device(const TraceLine& line) const {
  const int64_t dev = line.dev.value_or(0);
  const auto found = collections_.find(dev);
  return "dev " + std::to_string(dev) + (found != collections_.end() ? " " + found->second : "");
}

std::string HidTraceDecoder::Decode(const TraceLine& line) {
  if (line.fn == kHidCalls[kHidInterfaces]) return "interfaces: " + std::to_string(line.paths.size());
  if (line.fn == kHidCalls[kHidAttributes]) {
    if (line.rc.value_or(0) == 0 || !line.out || line.out->size() != 4) {
      return "attributes " + line.path.value_or("") + " -> failed";
    }
    char ids[24];
    const std::vector<uint8_t>& o = *line.out;
    std::snprintf(ids, sizeof ids, "%04x:%04x", o[0] | o[1] << 8, o[2] | o[3] << 8);
    return "attributes " + line.path.value_or("") + " -> " + ids;
  }
  if (line.fn == kHidCalls[kHidOpen]) {
    const std::string path = line.path.value_or("");
    const int64_t dev = line.dev.value_or(0);
    if (dev == 0) return "open " + path + " -> failed";
    for (const char16_t* tag : {kTouchCollectionTag, kForceCollectionTag}) {
      const std::string name(tag, tag + 5);
      if (path.find(name) != std::string::npos) collections_[dev] = name;
    }
    return "open " + path + " -> " + Device(line);
  }
  if (line.fn == kHidCalls[kHidClose]) return "close " + Device(line) + Ok(line.rc);
  if (line.fn == kHidCalls[kHidSetOutputReport]) return DecodeOutput(line);
  if (line.fn == kHidCalls[kHidGetInputReport]) return DecodeInput(line);
  return line.fn;
}

std::string HidTraceDecoder::DecodeOutput(const TraceLine& line) {
  const std::vector<uint8_t> report = line.in.value_or(std::vector<uint8_t>());
  std::string name = "unknown report";
  for (const NamedReport& known : kOutputReports) {
    if (report.size() >= known.size && std::equal(known.bytes, known.bytes + known.size, report.begin())) {
      name = known.name;
      break;
    }
  }
  Pending& pending = pending_[line.dev.value_or(0)];
  if (name == kOutputReports[0].name) pending = Pending::kTouchVersion;
  if (name == kOutputReports[1].name) pending = Pending::kForceVersion;
  if (name == "status request") pending = Pending::kStatus;
  if (name == "calibration data request") pending = Pending::kCalibrationData;
  if (name == "unknown report") {
    const std::vector<uint8_t> head(report.begin(), report.begin() + std::min<size_t>(report.size(), 11));
    name += " " + HexText(head);
  }
  return "output " + Device(line) + ": " + name + Ok(line.rc);
}

std::string HidTraceDecoder::DecodeInput(const TraceLine& line) {
  const std::string head = "input " + Device(line) + ": ";
  if (line.rc.value_or(0) == 0) return head + "failed";
  const std::vector<uint8_t> r = line.out.value_or(std::vector<uint8_t>());
  if (r.size() < kHidReportSize) return head + HexText(r);
  switch (pending_[line.dev.value_or(0)]) {
    case Pending::kTouchVersion:
      if (r[1] == 0x06 && r[2] == 0xB6) return head + "touch version " + Version(r[7], r[6], r[4], r[5]);
      return head + "touch version: wrong answer";
    case Pending::kForceVersion:
      if (r[1] == 0x06) return head + "force version " + Version(r[4], r[5], r[6], r[7]);
      return head + "force version: wrong answer";
    case Pending::kStatus:
      return head + (r[4] == 0 && r[5] == 0 ? "status done" : "status busy");
    case Pending::kCalibrationData:
      return head + CalibrationBlock(r);
    case Pending::kNone:
      break;
  }
  const std::vector<uint8_t> shown(r.begin(), r.begin() + 11);
  return head + HexText(shown);
}

}  // namespace calder::replay
