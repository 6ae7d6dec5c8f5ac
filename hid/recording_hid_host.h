#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "platform/hid_host.h"
#include "recorder/trace_line.h"

namespace calder {

// The calls as a HID trace names them: the seam's, not the system's, as
// the enumeration alone takes several SetupAPI calls.
inline constexpr char kHidInterfaces[] = "hid_interfaces";
inline constexpr char kHidAttributes[] = "hid_attributes";
inline constexpr char kHidOpen[] = "hid_open";
inline constexpr char kHidClose[] = "hid_close";
inline constexpr char kHidSetOutputReport[] = "hid_set_output_report";
inline constexpr char kHidGetInputReport[] = "hid_get_input_report";

// Passes every call to the machine's HID host unchanged and writes it to a
// trace, one line when the call returns: the enumeration, attribute probes,
// opens, output and input reports and closes. Handles are written as the
// number of the open that returned them (dev 1, 2, ...; 0 for one no open
// returned), device paths under the program's folder relative to it. The
// trace opens at the first call; without one the calls go through
// unrecorded.
class RecordingHidHost : public HidHost {
 public:
  // openTrace gives the trace's sink, its header written, or null.
  RecordingHidHost(HidHost& inner, std::function<uint64_t()> nowUs, std::string programDir,
                   std::function<recorder::TraceSink*()> openTrace);

  std::vector<std::u16string> InterfacePaths() override;
  bool ProbeAttributes(const std::u16string& path, HidAttributes* attributes) override;
  HidHandle OpenReadWrite(const std::u16string& path) override;
  bool Close(HidHandle handle) override;
  bool SetOutputReport(HidHandle handle, const uint8_t* report, size_t size) override;
  bool GetInputReport(HidHandle handle, uint8_t* report, size_t size) override;

 private:
  // The trace, opened on the first call; null when none could be.
  recorder::Trace* Enter(uint64_t* tUs);
  long long Dev(HidHandle handle) const;
  std::string Shown(const std::u16string& path) const;

  HidHost& inner_;
  std::function<uint64_t()> nowUs_;
  std::string programDir_;
  std::function<recorder::TraceSink*()> openTrace_;
  bool opened_ = false;
  std::unique_ptr<recorder::Trace> trace_;
  std::map<HidHandle, long long> devs_;
  long long opens_ = 0;
};

}  // namespace calder
