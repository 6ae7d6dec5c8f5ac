#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace calder {

// The touch device's reports: 33 bytes on "col04" (touchpad) and "col05"
// (force sensor), each with its report id in byte 0.
constexpr uint16_t kTouchDeviceVendorId = 0x347D;
constexpr uint16_t kTouchDeviceProductId = 0x7853;
inline constexpr char16_t kTouchCollectionTag[] = u"col04";
inline constexpr char16_t kForceCollectionTag[] = u"col05";

constexpr size_t kHidReportSize = 33;
constexpr uint8_t kTouchReportId = 0x0E;
constexpr uint8_t kForceReportId = 0x0D;

// Bytes 0 to 8 of a read request (L = 7). Built over the previous command,
// a request leaves bytes 9 and 10 of the buffer as they were.
using HidRequest = std::array<uint8_t, 9>;
// Bytes 0 to 10 of a command (L = 9); byte 10 is minus byte 9.
using HidCommand = std::array<uint8_t, 11>;

constexpr HidRequest kTouchVersionRequest = {0x0E, 0x07, 0xB4, 0x00, 0x00, 0x01, 0x00, 0x04, 0xB6};
constexpr HidRequest kForceVersionRequest = {0x0D, 0x07, 0x16, 0x00, 0x00, 0x01, 0x00, 0x04, 0x10};
constexpr HidCommand kCommand12 = {0x0D, 0x09, 0xFE, 0x00, 0x00, 0x03, 0x00, 0x00, 0x02, 0x12, 0xEE};
constexpr HidRequest kStatusAfterCommand12 = {0x0D, 0x07, 0x02, 0x00, 0x00, 0x01, 0x00, 0x02, 0x02};
constexpr HidCommand kCommand13 = {0x0D, 0x09, 0xFF, 0x01, 0x00, 0x03, 0x00, 0x00, 0x02, 0x13, 0xED};
constexpr HidRequest kStatusAfterCommand13 = {0x0D, 0x07, 0x01, 0x01, 0x00, 0x01, 0x00, 0x02, 0x02};
constexpr HidCommand kCommandBE = {0x0D, 0x09, 0xFD, 0x01, 0x00, 0x03, 0x00, 0x00, 0x02, 0xBE, 0x42};
constexpr HidRequest kStatusAfterCommandBE = {0x0D, 0x07, 0x01, 0x01, 0x00, 0x01, 0x00, 0x02, 0x02};
constexpr HidRequest kCalibrationDataRequest = {0x0D, 0x07, 0xAC, 0x01, 0x00, 0x01, 0x00, 0x15, 0xBE};

// The calibration block's answer: seven little-endian values from byte 4,
// their checksum in bytes 18 and 19, byte 20 set once it is ready.
constexpr size_t kCalibrationValues = 7;
constexpr size_t kCalibrationFirstByte = 4;
constexpr size_t kCalibrationChecksumByte = 18;
constexpr size_t kCalibrationReadyByte = 20;

}  // namespace calder
