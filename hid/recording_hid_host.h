#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "platform/hid_host.h"
#include "trace/trace_writer.h"

namespace calder {

// Passes every call to the machine's HID host unchanged and writes it to a
// trace, one line when the call returns, with its entry and return time:
// the enumeration, attribute probes, opens, output and input reports and
// closes. Handles are written as the number of the open that returned them
// (dev 1, 2, ...; 0 for one no open returned), device paths under the
// program's folder relative to it. The trace opens at the first call;
// without one the calls go through unrecorded.
class RecordingHidHost : public HidHost {
 public:
  // openTrace gives the trace's sink, its header written, or null.
  RecordingHidHost(HidHost& inner, std::function<int64_t()> nowUs, std::string programDir,
                   std::function<TraceSink*()> openTrace);

  std::vector<std::u16string> InterfacePaths() override;
  bool ProbeAttributes(const std::u16string& path, HidAttributes* attributes) override;
  HidHandle OpenReadWrite(const std::u16string& path) override;
  bool Close(HidHandle handle) override;
  bool SetOutputReport(HidHandle handle, const uint8_t* report, size_t size) override;
  bool GetInputReport(HidHandle handle, uint8_t* report, size_t size) override;

 private:
  // The call's line with its entry time; the trace opens on the first call.
  TraceLine Enter(HidCall call);
  void Done(TraceLine& line);
  int64_t Dev(HidHandle handle) const;
  std::string Shown(const std::u16string& path) const;

  HidHost& inner_;
  std::function<int64_t()> nowUs_;
  std::string programDir_;
  std::function<TraceSink*()> openTrace_;
  bool opened_ = false;
  std::unique_ptr<TraceWriter> writer_;
  std::map<HidHandle, int64_t> devs_;
  int64_t opens_ = 0;
};

}  // namespace calder
