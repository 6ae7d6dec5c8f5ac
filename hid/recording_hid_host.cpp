#include "hid/recording_hid_host.h"

#include <utility>

#include "base/utf8.h"

namespace calder {

using recorder::TraceLine;

RecordingHidHost::RecordingHidHost(HidHost& inner, std::function<uint64_t()> nowUs,
                                   std::string programDir,
                                   std::function<recorder::TraceSink*()> openTrace)
    : inner_(inner),
      nowUs_(std::move(nowUs)),
      programDir_(std::move(programDir)),
      openTrace_(std::move(openTrace)) {}

recorder::Trace* RecordingHidHost::Enter(uint64_t* tUs) {
  if (!opened_) {
    opened_ = true;
    if (recorder::TraceSink* sink = openTrace_()) trace_ = std::make_unique<recorder::Trace>(*sink);
  }
  if (trace_ == nullptr) return nullptr;
  *tUs = trace_->Since(nowUs_(), true);
  return trace_.get();
}

long long RecordingHidHost::Dev(HidHandle handle) const {
  const auto found = devs_.find(handle);
  return found != devs_.end() ? found->second : 0;
}

std::string RecordingHidHost::Shown(const std::u16string& path) const {
  std::string text = Utf16ToUtf8(path);
  const std::string folder = programDir_ + "\\";
  if (!programDir_.empty() && text.size() > folder.size() && text.compare(0, folder.size(), folder) == 0) {
    text.erase(0, folder.size());
  }
  return text;
}

std::vector<std::u16string> RecordingHidHost::InterfacePaths() {
  uint64_t t = 0;
  recorder::Trace* trace = Enter(&t);
  std::vector<std::u16string> paths = inner_.InterfacePaths();
  if (trace != nullptr) {
    trace->Write(t, [&](TraceLine& line) {
      line.Text("fn", kHidInterfaces);
      std::vector<std::string> shown;
      for (const std::u16string& path : paths) shown.push_back(Shown(path));
      line.Texts("paths", shown);
    });
  }
  return paths;
}

bool RecordingHidHost::ProbeAttributes(const std::u16string& path, HidAttributes* attributes) {
  uint64_t t = 0;
  recorder::Trace* trace = Enter(&t);
  HidAttributes found;
  const bool ok = inner_.ProbeAttributes(path, &found);
  if (ok && attributes != nullptr) *attributes = found;
  if (trace != nullptr) {
    const uint8_t ids[4] = {static_cast<uint8_t>(found.vendorId), static_cast<uint8_t>(found.vendorId >> 8),
                            static_cast<uint8_t>(found.productId), static_cast<uint8_t>(found.productId >> 8)};
    trace->Write(t, [&](TraceLine& line) {
      line.Text("fn", kHidAttributes).Text("path", Shown(path).c_str()).Hex("out", ids, 4).Int("rc", ok);
    });
  }
  return ok;
}

HidHandle RecordingHidHost::OpenReadWrite(const std::u16string& path) {
  uint64_t t = 0;
  recorder::Trace* trace = Enter(&t);
  const HidHandle handle = inner_.OpenReadWrite(path);
  long long dev = 0;
  if (handle != InvalidHidHandle()) {
    dev = ++opens_;
    devs_[handle] = dev;  // a value the system hands out again is the new open's
  }
  if (trace != nullptr) {
    trace->Write(t, [&](TraceLine& line) {
      line.Text("fn", kHidOpen).Text("path", Shown(path).c_str()).Int("dev", dev);
    });
  }
  return handle;
}

bool RecordingHidHost::Close(HidHandle handle) {
  uint64_t t = 0;
  recorder::Trace* trace = Enter(&t);
  const bool ok = inner_.Close(handle);
  if (trace != nullptr) {
    trace->Write(t, [&](TraceLine& line) { line.Text("fn", kHidClose).Int("dev", Dev(handle)).Int("rc", ok); });
  }
  return ok;
}

bool RecordingHidHost::SetOutputReport(HidHandle handle, const uint8_t* report, size_t size) {
  uint64_t t = 0;
  recorder::Trace* trace = Enter(&t);
  const bool ok = inner_.SetOutputReport(handle, report, size);
  if (trace != nullptr) {
    const auto length = static_cast<long long>(size);
    trace->Write(t, [&](TraceLine& line) {
      line.Text("fn", kHidSetOutputReport).Int("dev", Dev(handle)).Hex("in", report, length);
      line.Int("len", length).Int("rc", ok);
    });
  }
  return ok;
}

bool RecordingHidHost::GetInputReport(HidHandle handle, uint8_t* report, size_t size) {
  uint64_t t = 0;
  recorder::Trace* trace = Enter(&t);
  // The device reads only the report id of what the buffer held.
  const uint8_t id = report != nullptr && size > 0 ? report[0] : 0;
  const bool ok = inner_.GetInputReport(handle, report, size);
  if (trace != nullptr) {
    const auto length = static_cast<long long>(size);
    trace->Write(t, [&](TraceLine& line) {
      line.Text("fn", kHidGetInputReport).Int("dev", Dev(handle)).Hex("in", &id, size > 0 ? 1 : 0);
      line.Hex("out", report, length).Int("len", length).Int("rc", ok);
    });
  }
  return ok;
}

}  // namespace calder
