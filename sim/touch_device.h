#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/hid_host.h"

namespace calder::sim {

// Which part of the touch device an interface leads to.
enum class Collection { kOther, kTouch, kForce };

// One HID interface as the machine lists it.
struct HidInterface {
  std::u16string name;  // device path without the host's prefix
  uint16_t vendorId = 0;
  uint16_t productId = 0;
  Collection collection = Collection::kOther;
  bool probes = true;          // opens for query and answers its attributes
  bool opensReadWrite = true;  // false: held exclusively elsewhere
};

struct SentReport {
  Collection collection;
  std::vector<uint8_t> bytes;
};

// The laptop's touch device behind its HID collections: "col04" answers the
// touchpad version, "col05" the force sensor's version and, between command
// 12 and command 13, the calibration block after command BE. A command's
// status turns done commandDelayMs after the command on the given clock.
//
// It plays the machine's HidHost in unit tests; the stand-in hid.dll and
// setupapi.dll use the path-level calls with their own handles. Output
// reports the firmware would refuse (wrong size or report id, bytes 11 to 32
// not zero, a bad checksum, an unknown command) are protocol violations.
class TouchDevice : public HidHost {
 public:
  static constexpr uint16_t kVendorId = 0x347D;
  static constexpr uint16_t kProductId = 0x7853;
  static constexpr size_t kReportSize = 33;

  // Device paths are prefix + interface name.
  explicit TouchDevice(Clock& clock, std::u16string pathPrefix = u"\\\\?\\");
  // On a virtual clock every input report also takes reportTimeMs, so a poll
  // without sleeps still reaches its time-out; it is not recorded as a sleep.
  explicit TouchDevice(VirtualClock& clock, std::u16string pathPrefix = u"\\\\?\\");

  // --- configuration and faults ---
  std::vector<HidInterface> interfaces;  // starts as a machine with both collections
  std::array<uint8_t, 4> touchVersion{1, 2, 3, 4};
  std::array<uint8_t, 4> forceVersion{5, 6, 7, 8};
  // When set, the exact answer (from byte 1 on) to a version request, for
  // wrong or odd answers.
  std::vector<uint8_t> touchAnswer;
  std::vector<uint8_t> forceAnswer;
  std::array<uint16_t, 7> calibration{0x0102, 0x0304, 0xFFFF, 0x8000, 12, 0, 7};
  uint32_t commandDelayMs = 40;
  std::set<uint8_t> neverReady;     // command codes whose status never turns done
  int blocksNotReady = 0;           // data answers with byte 20 clear before the block
  int blocksWithBadChecksum = 0;    // then blocks with one wrong checksum byte
  bool enumerationFails = false;
  uint32_t reportTimeMs = 1;

  // Drops every interface whose name contains the tag.
  void RemoveCollection(const std::u16string& tag);
  // Marks the interfaces whose name contains the tag.
  void SetProbes(const std::u16string& tag, bool probes);
  void SetOpensReadWrite(const std::u16string& tag, bool opens);

  // --- what the device saw ---
  std::vector<SentReport> sent;        // accepted output reports, in order
  std::vector<std::u16string> probed;  // paths probed, in order
  std::vector<std::u16string> opened;  // paths opened for reading and writing
  int inputReports = 0;
  int failedSends = 0;  // output reports to a handle that is not open
  int failedReads = 0;
  int closes = 0;
  int failedCloses = 0;
  bool calibrationMode() const { return calibrationMode_; }
  size_t OpenHandleCount() const { return handles_.size(); }

  // --- path level, shared with the stand-in DLLs ---
  std::vector<std::u16string> Paths() const;
  const HidInterface* Find(const std::u16string& path) const;
  bool Receive(const std::u16string& path, const uint8_t* report, size_t size);
  bool Answer(const std::u16string& path, uint8_t* report, size_t size);

  // --- HidHost ---
  std::vector<std::u16string> InterfacePaths() override;
  bool ProbeAttributes(const std::u16string& path, HidAttributes* attributes) override;
  HidHandle OpenReadWrite(const std::u16string& path) override;
  bool Close(HidHandle handle) override;
  bool SetOutputReport(HidHandle handle, const uint8_t* report, size_t size) override;
  bool GetInputReport(HidHandle handle, uint8_t* report, size_t size) override;

 private:
  enum class Pending { kNone, kTouchVersion, kForceVersion, kStatus, kData };

  // False for a report the firmware does not know.
  bool HandleTouchReport(const uint8_t* report);
  bool HandleForceReport(const uint8_t* report);
  bool CommandDone() const;
  void FillCalibrationBlock(uint8_t* report);

  Clock& clock_;
  VirtualClock* virtualClock_ = nullptr;
  std::u16string prefix_;
  std::map<HidHandle, std::u16string> handles_;
  uintptr_t nextHandle_ = 0x100;

  Pending touchPending_ = Pending::kNone;
  Pending forcePending_ = Pending::kNone;
  int lastCommand_ = -1;
  uint64_t commandAt_ = 0;
  bool calibrationMode_ = false;
  unsigned busyAnswers_ = 0;
};

// Upper-case hex of the first count bytes, separated by blanks: "0D 07 16".
std::string HexBytes(const std::vector<uint8_t>& bytes, size_t count);

}  // namespace calder::sim
