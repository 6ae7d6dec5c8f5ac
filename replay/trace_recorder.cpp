#include "replay/trace_recorder.h"

#include <cstring>

#include "base/sha256.h"

namespace calder::replay {

namespace {

RecordingUpgrade* g_recording = nullptr;  // the one the C callbacks reach

int64_t NextSeq(const Trace& trace) { return static_cast<int64_t>(trace.lines.size()) + 1; }

}  // namespace

RecordingBridge::RecordingBridge(BridgeLibrary& inner, Clock& clock) : inner_(inner), clock_(clock) {
  trace.library = TraceLibrary::kBridge;
}

int RecordingBridge::Done(TraceLine line, uint64_t enteredMs, int rc) {
  line.seq = NextSeq(trace);
  line.tUs = static_cast<int64_t>(enteredMs) * 1000;
  line.retUs = static_cast<int64_t>(clock_.NowMs()) * 1000;
  line.rc = rc;
  trace.lines.push_back(std::move(line));
  return rc;
}

int RecordingBridge::btl_init_driver_7853() {
  const uint64_t at = clock_.NowMs();
  return Done(CallLine(kBridgeLibraryEntryPoints[kInitDriver]), at, inner_.btl_init_driver_7853());
}

int RecordingBridge::btl_open_device() {
  const uint64_t at = clock_.NowMs();
  return Done(CallLine(kBridgeLibraryEntryPoints[kOpenDevice]), at, inner_.btl_open_device());
}

int RecordingBridge::btl_write_data(unsigned char* buffer, int length) {
  const uint64_t at = clock_.NowMs();
  TraceLine line = CallLine(kBridgeLibraryEntryPoints[kWriteData]);
  line.in = BytesOf(buffer, length);
  line.len = length;
  return Done(std::move(line), at, inner_.btl_write_data(buffer, length));
}

int RecordingBridge::btl_read_data(unsigned char* buffer, int length) {
  const uint64_t at = clock_.NowMs();
  const int rc = inner_.btl_read_data(buffer, length);
  TraceLine line = CallLine(kBridgeLibraryEntryPoints[kReadData]);
  line.out = BytesOf(buffer, length);
  line.len = length;
  return Done(std::move(line), at, rc);
}

int RecordingBridge::btl_close_device() {
  const uint64_t at = clock_.NowMs();
  return Done(CallLine(kBridgeLibraryEntryPoints[kCloseDevice]), at, inner_.btl_close_device());
}

int RecordingBridge::btl_uninstall_driver() {
  const uint64_t at = clock_.NowMs();
  return Done(CallLine(kBridgeLibraryEntryPoints[kUninstallDriver]), at, inner_.btl_uninstall_driver());
}

RecordingUpgrade::RecordingUpgrade(UpgradeLibrary& inner, Clock& clock, std::string programDir)
    : inner_(inner), clock_(clock), programDir_(std::move(programDir)) {
  trace.library = TraceLibrary::kUpgrade;
  g_recording = this;
}

RecordingUpgrade::~RecordingUpgrade() {
  if (g_recording == this) g_recording = nullptr;
}

void RecordingUpgrade::OnProgress(int32_t percent, const char* text) {
  if (g_recording != nullptr) g_recording->Callback("progress", percent, text);
}

void RecordingUpgrade::OnLog(int32_t level, const char* text) {
  if (g_recording != nullptr) g_recording->Callback("log", level, text);
}

void RecordingUpgrade::Callback(const char* cb, int32_t value, const char* text) {
  TraceLine line;
  line.cb = cb;
  line.value = value;
  line.text = TextOf(text);
  Done(std::move(line), Entered());
  if (std::strcmp(cb, "progress") == 0 && progress_ != nullptr) progress_(value, text);
  if (std::strcmp(cb, "log") == 0 && log_ != nullptr) log_(value, text);
}

uint64_t RecordingUpgrade::Entered() {
  return clock_.NowMs();
}

void RecordingUpgrade::Done(TraceLine line, uint64_t enteredMs) {
  line.seq = NextSeq(trace);
  line.tUs = static_cast<int64_t>(enteredMs) * 1000;
  if (line.isCall()) line.retUs = static_cast<int64_t>(clock_.NowMs()) * 1000;
  trace.lines.push_back(std::move(line));
}

int32_t RecordingUpgrade::Init(btl_upgrade_config* config) {
  const uint64_t at = Entered();
  TraceLine line = CallLine(kUpgradeLibraryEntryPoints[kUpgradeInit]);
  line.config = RecordedConfig(config);
  int32_t rc = 0;
  if (config == nullptr) {
    rc = inner_.Init(nullptr);
  } else {
    progress_ = config->progress;
    log_ = config->log;
    forwarded_ = *config;
    if (progress_ != nullptr) forwarded_.progress = &OnProgress;
    if (log_ != nullptr) forwarded_.log = &OnLog;
    rc = inner_.Init(&forwarded_);
  }
  line.rc = rc;
  Done(std::move(line), at);
  return rc;
}

int32_t RecordingUpgrade::UpgradeFromFile(const char* path) {
  const uint64_t at = Entered();
  TraceLine line = CallLine(kUpgradeLibraryEntryPoints[kUpgradeFromFile]);
  line.sha256 = path != nullptr ? check::FileSha256(path) : std::nullopt;
  if (path != nullptr) line.path = PathUnder(path, programDir_);
  const int32_t rc = inner_.UpgradeFromFile(path);
  line.rc = rc;
  Done(std::move(line), at);
  return rc;
}

// The three queries: a variable in, the library's answer out.
template <typename Query>
int32_t RecordingUpgrade::RecordQuery(UpgradeEntryPoint entry, void* variable, size_t size,
                                      Query query) {
  const uint64_t at = Entered();
  TraceLine line = CallLine(kUpgradeLibraryEntryPoints[entry]);
  line.in = BytesOf(variable, static_cast<long long>(size));
  const int32_t rc = query();
  line.out = BytesOf(variable, static_cast<long long>(size));
  line.rc = rc;
  Done(std::move(line), at);
  return rc;
}

int32_t RecordingUpgrade::GetChecksum(uint32_t* checksum) {
  return RecordQuery(kGetChecksum, checksum, 4, [&] { return inner_.GetChecksum(checksum); });
}

int32_t RecordingUpgrade::GetFirmwareVersion(uint8_t* version) {
  return RecordQuery(kGetFirmwareVersion, version, 1,
                     [&] { return inner_.GetFirmwareVersion(version); });
}

int32_t RecordingUpgrade::GetChipId(uint8_t* chipId) {
  return RecordQuery(kGetChipId, chipId, 1, [&] { return inner_.GetChipId(chipId); });
}

int32_t RecordingUpgrade::CheckNeedUpgrade(const char* path, uint32_t* needUpgrade) {
  const uint64_t at = Entered();
  TraceLine line = CallLine(kUpgradeLibraryEntryPoints[kCheckNeedUpgrade]);
  line.sha256 = path != nullptr ? check::FileSha256(path) : std::nullopt;
  if (path != nullptr) line.path = PathUnder(path, programDir_);
  line.in = BytesOf(needUpgrade, 4);
  const int32_t rc = inner_.CheckNeedUpgrade(path, needUpgrade);
  line.out = BytesOf(needUpgrade, 4);
  line.rc = rc;
  Done(std::move(line), at);
  return rc;
}

void RecordingUpgrade::Deinit() {
  const uint64_t at = Entered();
  inner_.Deinit();
  Done(CallLine(kUpgradeLibraryEntryPoints[kUpgradeDeinit]), at);
}

}  // namespace calder::replay
