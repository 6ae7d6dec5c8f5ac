#include "hid/recording_hid_host.h"

#include <utility>

#include "base/utf8.h"

namespace calder {

RecordingHidHost::RecordingHidHost(HidHost& inner, std::function<int64_t()> nowUs,
                                   std::string programDir, std::function<TraceSink*()> openTrace)
    : inner_(inner),
      nowUs_(std::move(nowUs)),
      programDir_(std::move(programDir)),
      openTrace_(std::move(openTrace)) {}

TraceLine RecordingHidHost::Enter(HidCall call) {
  if (!opened_) {
    opened_ = true;
    if (TraceSink* sink = openTrace_()) writer_ = std::make_unique<TraceWriter>(*sink, TraceLibrary::kHid);
  }
  TraceLine line = CallLine(kHidCalls[call]);
  line.tUs = nowUs_();
  return line;
}

void RecordingHidHost::Done(TraceLine& line) {
  line.retUs = nowUs_();
  if (writer_ != nullptr) writer_->Write(line);
}

int64_t RecordingHidHost::Dev(HidHandle handle) const {
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
  TraceLine line = Enter(kHidInterfaces);
  std::vector<std::u16string> paths = inner_.InterfacePaths();
  for (const std::u16string& path : paths) line.paths.push_back(Shown(path));
  Done(line);
  return paths;
}

bool RecordingHidHost::ProbeAttributes(const std::u16string& path, HidAttributes* attributes) {
  TraceLine line = Enter(kHidAttributes);
  HidAttributes found;
  const bool ok = inner_.ProbeAttributes(path, &found);
  if (ok) *attributes = found;
  line.path = Shown(path);
  line.out = std::vector<uint8_t>{static_cast<uint8_t>(found.vendorId), static_cast<uint8_t>(found.vendorId >> 8),
                                  static_cast<uint8_t>(found.productId),
                                  static_cast<uint8_t>(found.productId >> 8)};
  line.rc = ok;
  Done(line);
  return ok;
}

HidHandle RecordingHidHost::OpenReadWrite(const std::u16string& path) {
  TraceLine line = Enter(kHidOpen);
  const HidHandle handle = inner_.OpenReadWrite(path);
  line.dev = 0;
  if (handle != InvalidHidHandle()) {
    line.dev = ++opens_;
    devs_[handle] = *line.dev;  // a value the system hands out again is the new open's
  }
  line.path = Shown(path);
  Done(line);
  return handle;
}

bool RecordingHidHost::Close(HidHandle handle) {
  TraceLine line = Enter(kHidClose);
  const bool ok = inner_.Close(handle);
  line.dev = Dev(handle);
  line.rc = ok;
  Done(line);
  return ok;
}

bool RecordingHidHost::SetOutputReport(HidHandle handle, const uint8_t* report, size_t size) {
  TraceLine line = Enter(kHidSetOutputReport);
  line.in = BytesOf(report, static_cast<long long>(size));
  const bool ok = inner_.SetOutputReport(handle, report, size);
  line.dev = Dev(handle);
  line.len = static_cast<int64_t>(size);
  line.rc = ok;
  Done(line);
  return ok;
}

bool RecordingHidHost::GetInputReport(HidHandle handle, uint8_t* report, size_t size) {
  TraceLine line = Enter(kHidGetInputReport);
  line.reportId = report != nullptr && size > 0 ? report[0] : 0;
  const bool ok = inner_.GetInputReport(handle, report, size);
  line.dev = Dev(handle);
  line.out = BytesOf(report, static_cast<long long>(size));
  line.len = static_cast<int64_t>(size);
  line.rc = ok;
  Done(line);
  return ok;
}

}  // namespace calder
