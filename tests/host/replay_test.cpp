#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "force/boot_loader_packets.h"
#include "replay/replay_run.h"
#include "sim/trace/trace_decoder.h"
#include "sim/trace/traced_libraries.h"
#include "tests/support/force_rig.h"
#include "trace/trace_reader.h"
#include "trace/trace_writer.h"

namespace calder::replay {
namespace {

namespace fs = std::filesystem;
using test::Hex;

// A package with a small touchpad image and a 1000-byte force image.
fs::path MakePackage(const std::string& name, uint8_t touchpadSeed = 3) {
  const fs::path dir = fs::path(testing::TempDir()) / ("calder-replay-" + name);
  fs::create_directories(dir / "TP");
  fs::create_directories(dir / "Force");
  const auto put = [](const fs::path& path, const std::vector<uint8_t>& bytes) {
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  };
  put(dir / "TP" / "tp_fw.bin", test::PatternBytes(4096, touchpadSeed));
  put(dir / "Force" / "1.0.2.3.bin", test::PatternBytes(1000));
  return dir;
}

TraceLine Write(const std::vector<uint8_t>& frame, int rc = 0) {
  TraceLine line = CallLine("btl_write_data");
  line.in = frame;
  line.len = static_cast<int64_t>(frame.size());
  line.rc = rc;
  return line;
}

TraceLine Read(const std::vector<uint8_t>& reply, int rc = 0) {
  TraceLine line = CallLine("btl_read_data");
  line.out = reply;
  line.len = static_cast<int64_t>(reply.size());
  line.rc = rc;
  return line;
}

std::vector<uint8_t> Reply(std::initializer_list<std::pair<size_t, uint8_t>> bytes, size_t size = 14) {
  std::vector<uint8_t> out(size, 0x11);
  for (const auto& [at, value] : bytes) out[at] = value;
  return out;
}

TEST(TraceDecoderTest, NamesEachFrameAndReplyAsTheProtocolReadsIt) {
  const uint8_t block[64] = {};
  const struct {
    std::vector<TraceLine> lines;  // the last one is judged
    std::string decoded;
  } kCases[] = {
      {{Write(Hex("FF AA 00 01"))}, "write 4: restart assert -> ok"},
      {{Write(Hex("FF AA 00 00"), 5)}, "write 4: restart release -> error 5"},
      {{Write(Hex("FF 57 00 00 01 01"))}, "write 6: boot-hold -> ok"},
      {{Write(Hex("FF 57 00 00 85 01 81 01 01 00 00 01 00"))}, "write 13: connect -> ok"},
      {{Write(CommandFrame(kEraseSectors, EraseData(20, 0x01001000).data(), 6))},
       "write 19: erase 20 sectors at 0x01001000 -> ok"},
      {{Write(CommandFrame(kWriteFlash, WriteFlashData(0x01001080, block).data(), 68))},
       "write 81: write block 2 at 0x01001080 length 64 -> ok"},
      {{Write(CommandFrame(kReadFlash, ReadFlashData(0x01001028).data(), 6))},
       "write 19: read 40 bytes at 0x01001028 -> ok"},
      {{Write(CommandFrame(kRunApplication, RunApplicationData().data(), 4))}, "write 17: run at 0x01001000 -> ok"},
      {{Write(TouchFrame(true))}, "write 40: touch-off -> ok"},
      {{Write(TouchFrame(false))}, "write 40: touch-on -> ok"},
      {{Write(Hex("FF 52 0E 00"))}, "write 4: reply request 14 bytes -> ok"},
      {{Write(Hex("FF 57 00 00 10")), Read(Hex("01 00 02 03"))}, "read 4: version 1.0.2.3"},
      {{Write(Hex("FF 57 00 00 85 01 81 01 01 00 00 01 00")), Read(Reply({{9, 0}, {10, 2}, {11, 0}, {12, 1}, {13, 0}}))},
       "read 14: connect reply ok"},
      {{Write(Hex("FF 57 00 00 85 01 81 01 01 00 00 01 00")), Read(Reply({{13, 1}}))},
       "read 14: connect: wrong reply 1111111111111111111111111101"},
      {{Write(CommandFrame(kWriteFlash, WriteFlashData(0x01001000, block).data(), 68)),
        Read(Reply({{3, 3}, {4, 2}, {9, 0}}))}, "read 14: write reply ok"},
      {{Write(CommandFrame(kWriteFlash, WriteFlashData(0x01001000, block).data(), 68)), Read(Reply({{9, 1}}))},
       "read 14: write: wrong reply 1111111111111111110111111111"},
      {{Read(Reply({}), 2)}, "read 14: error 2"},
      {{Read(std::vector<uint8_t>(10))}, "read 10: no answer (all zero)"},
  };
  for (const auto& c : kCases) {
    TraceDecoder decoder(TraceLibrary::kBridge);
    std::string decoded;
    for (const TraceLine& line : c.lines) decoded = decoder.Decode(line);
    EXPECT_EQ(decoded, c.decoded);
  }
}

// One recorded update of the package on the models, reused by the cases.
class ReplayTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    package_ = new fs::path(MakePackage("clean"));
    recorded_ = new RecordedRun(RecordUpdate(*package_));
  }
  static void TearDownTestSuite() {
    delete recorded_;
    delete package_;
  }
  static size_t IndexOf(const Trace& trace, const std::string& fn, int nth = 0) {
    for (size_t i = 0; i < trace.lines.size(); ++i) {
      if (trace.lines[i].fn == fn && nth-- == 0) return i;
    }
    return 0;
  }
  static fs::path* package_;
  static RecordedRun* recorded_;
};
fs::path* ReplayTest::package_ = nullptr;
RecordedRun* ReplayTest::recorded_ = nullptr;

TEST_F(ReplayTest, TheRecordedRunReplaysCallForCall) {
  ASSERT_EQ(recorded_->result, 0);
  const ReplayOutcome outcome = ReplayUpdate({recorded_->bridge, recorded_->upgrade}, *package_);
  EXPECT_EQ(outcome.exitCode, kReplayMatched);
  EXPECT_EQ(outcome.runResult, 0);
  EXPECT_FALSE(outcome.state.divergence);
  EXPECT_TRUE(outcome.state.pacing.empty());
  ASSERT_EQ(outcome.traces.size(), 2u);
  EXPECT_EQ(outcome.traces[0].matched, recorded_->bridge.CallCount());
  EXPECT_EQ(outcome.traces[1].matched, recorded_->upgrade.CallCount());
}

TEST_F(ReplayTest, AChangedTraceOrPackageDivergesWhereItChanged) {
  const size_t k = IndexOf(recorded_->bridge, "btl_write_data", 25);
  const struct {
    const char* name;
    std::function<void(Trace& bridge, Trace& upgrade)> mutate;
    bool changedPackage;
    int exitCode;
    std::string why;  // in the expected call, or the actual one for a cut
  } kCases[] = {
      {"entry point", [&](Trace& b, Trace&) { b.lines[1].fn = "btl_init_driver_7853"; }, false, 4, "another entry point"},
      {"bytes", [&](Trace& b, Trace&) { (*b.lines[k].in)[5] ^= 1; }, false, 4, "other bytes"},
      {"order", [&](Trace& b, Trace&) { std::swap(b.lines[k + 1], b.lines[k + 2]); }, false, 4, "another entry point"},
      {"extra call in the run", [&](Trace& b, Trace&) { b.lines.erase(b.lines.begin() + k); }, false, 4, "other bytes"},
      {"missing call", [&](Trace& b, Trace&) { b.lines.push_back(b.lines.back()); }, false, 4, "missing call"},
      {"configuration", [&](Trace&, Trace& u) { u.lines[0].config->chipId = 0x42; }, false, 4, "another configuration"},
      {"firmware", [&](Trace&, Trace&) {}, true, 4, "another file content"},
      {"cut off", [&](Trace& b, Trace&) { b.lines.resize(k); b.cut = true; }, false, 5, ""},
  };
  const fs::path changed = MakePackage("changed", 9);
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    Trace bridge = recorded_->bridge;
    Trace upgrade = recorded_->upgrade;
    c.mutate(bridge, upgrade);
    const ReplayOutcome outcome = ReplayUpdate({bridge, upgrade}, c.changedPackage ? changed : *package_);
    EXPECT_EQ(outcome.exitCode, c.exitCode);
    if (c.exitCode == kReplayCutOff) {
      EXPECT_FALSE(outcome.state.divergence);
      continue;
    }
    ASSERT_TRUE(outcome.state.divergence);
    EXPECT_NE(outcome.state.divergence->expected.find(c.why), std::string::npos)
        << outcome.state.divergence->expected;
    EXPECT_EQ(outcome.state.divergence->before.empty(), outcome.state.divergence->call == 1);
  }
}

TEST(TracedUpgradeTest, CallbacksRecordedBeforeACallAreMadeDuringIt) {
  static std::vector<std::string> events;
  events.clear();
  Trace trace;
  trace.library = TraceLibrary::kUpgrade;
  TraceLine init = CallLine("btl_upgrade_init");
  init.config = TraceConfig{std::string("ACPI\\BLTP7853"), 0x41, 1, {0, 1, 0}, true, false};
  init.rc = 0;
  TraceLine progress;
  progress.cb = "progress";
  progress.value = 50;
  TraceLine upgrade = CallLine("btl_upgrade_from_file");
  upgrade.path = "TP\\a.bin";
  upgrade.rc = 0;
  trace.lines = {init, progress, upgrade};
  VirtualClock clock;
  ReplayState state;
  TracedUpgrade library(trace, "C:\\pkg", clock, state);
  btl_upgrade_config config = BuildUpgradeConfig(
      "ACPI\\BLTP7853", 0x41, 1, [](int32_t p, const char*) { events.push_back("progress " + std::to_string(p)); },
      nullptr);
  EXPECT_EQ(library.Init(&config), 0);
  events.push_back("init returned");
  EXPECT_EQ(library.UpgradeFromFile("C:\\pkg\\TP\\a.bin"), 0);
  EXPECT_EQ(events, (std::vector<std::string>{"init returned", "progress 50"}));
  EXPECT_FALSE(state.divergence);
}

// The pause is the program's own, from the previous call's return (10 ms
// after its entry here) to the next call's entry.
TEST(TracedBridgeTest, APauseShorterThanRecordedLess100MsIsAPacingWarning) {
  for (const auto& [recordedPauseUs, warned] : {std::pair{120000, false}, {120001, true}}) {
    Trace trace;
    trace.lines = {CallLine("btl_init_driver_7853"), CallLine("btl_open_device")};
    trace.lines[0].rc = trace.lines[1].rc = 0;
    trace.lines[0].retUs = 10000;
    trace.lines[1].tUs = 10000 + recordedPauseUs;
    trace.lines[1].seq = 2;
    VirtualClock clock;
    ReplayState state;
    TracedBridge bridge(trace, "", clock, state);
    bridge.btl_init_driver_7853();
    clock.Sleep(20);
    bridge.btl_open_device();
    EXPECT_EQ(state.pacing.size(), warned ? 1u : 0u) << recordedPauseUs;
  }
}

TEST(TraceReaderTest, DamagedTracesAreRefusedWithTheLineAndACutLastLineIsDropped) {
  const std::string header = R"({"calder_trace":2,"library":"btl_hid_transfer.dll","dir":"C:\\pkg"})";
  const std::string open = R"({"seq":1,"t_us":0,"ret_us":0,"fn":"btl_open_device","rc":0})";
  const struct {
    std::string text;
    std::string error;  // empty: read, with the last line dropped
  } kCases[] = {
      {"", "empty file"},
      {"junk\n", "line 1: not JSON"},
      {R"({"calder_trace":1,"library":"btl_upgrade.dll","dir":""})" "\n", "trace format 1"},
      {R"({"calder_trace":2,"library":"other.dll","dir":""})" "\n", "names no library"},
      {header + "\n{\"seq\":1,\n" + open + "\n", "line 2: not JSON"},
      {header + "\n" + R"({"seq":1,"t_us":0,"ret_us":0,"fn":"btl_write_data","in":"fg","len":1,"rc":0})" "\n", "\"in\""},
      {header + "\n" + R"({"seq":1,"t_us":0,"ret_us":0,"fn":"btl_write_data","in":"ff","len":2,"rc":0})" "\n", "length"},
      {header + "\n" + R"({"seq":1,"t_us":0,"ret_us":0,"fn":"btl_open_device"})" "\n", "\"rc\""},
      {header + "\n" + R"({"seq":1,"t_us":0,"ret_us":0,"fn":"btl_upgrade_init","rc":0})" "\n", "no entry point"},
      {header + "\n" + R"({"seq":1,"t_us":5,"ret_us":4,"fn":"btl_open_device","rc":0})" "\n", "\"ret_us\""},
      {header + "\n" + R"({"seq":2,"t_us":0,"ret_us":0,"fn":"btl_open_device","rc":0})" "\n", "line 2: seq 2 where 1 belongs"},
      {header + "\n" + open + "\n" + open + "\n", "line 3: seq 1 where 2 belongs"},
      {header + "\n" + open + "\n{\"seq\":2,\"t_us\":5,\"fn\":\"btl_clo", ""},
  };
  for (const auto& c : kCases) {
    Trace trace;
    std::string error;
    EXPECT_EQ(ParseTrace(c.text, "t", &trace, &error), c.error.empty()) << c.text;
    EXPECT_NE(error.find(c.error), std::string::npos) << error;
    if (c.error.empty()) {
      EXPECT_TRUE(trace.cut && trace.lines.size() == 1 && trace.notes.size() == 1);
    }
  }
}

// calder.exe's own HID traffic, recorded on the models and replayed with the
// laptop's HID answered from the trace alone: the replay's model would
// rescue every run, so a run that failed replays failing only from the trace.
TEST(HidReplayTest, VersionRunsAndTheReadBackRescueReplayFromWhatTheLaptopSaid) {
  const fs::path package = MakePackage("hid");
  const auto erased = [](sim::SimulatedLaptop& l) { l.sensor.faults.erasedValue = 0xFF; };
  const auto neverReady = [](sim::SimulatedLaptop& l) { l.touch.neverReady.insert(0xBE); };
  const struct {
    const char* run;
    std::function<void(sim::SimulatedLaptop&)> arrange;
    int result;
  } kCases[] = {
      {"--version", nullptr, 0},
      {"--version", neverReady, 1},
      {"--update", erased, 0},
      {"--update", [&](sim::SimulatedLaptop& l) { erased(l), neverReady(l); }, 1},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(std::string(c.run) + " " + std::to_string(c.result));
    RecordedRun recorded = RecordUpdate(package, c.arrange, c.run);
    ASSERT_EQ(recorded.result, c.result);
    ASSERT_GT(recorded.hid.CallCount(), 10u) << recorded.hid.name;
    std::vector<Trace> traces{recorded.hid};
    if (std::string(c.run) == "--update") traces = {recorded.bridge, recorded.upgrade, recorded.hid};
    ReplayOutcome outcome = ReplayUpdate(traces, package);
    EXPECT_EQ(outcome.exitCode, kReplayMatched);
    EXPECT_EQ(outcome.runResult, c.result);
    EXPECT_TRUE(outcome.state.pacing.empty());
    // A request the run no longer sends diverges at its call, decoded.
    Trace& hid = traces.back();
    const auto request = std::find_if(hid.lines.begin(), hid.lines.end(),
                                      [](const TraceLine& l) { return l.fn == "hid_set_output_report"; });
    (*request->in)[2] ^= 1;
    outcome = ReplayUpdate(traces, package);
    ASSERT_TRUE(outcome.state.divergence);
    EXPECT_EQ(outcome.state.divergence->call, request->seq);
    EXPECT_NE(outcome.state.divergence->expected.find("unknown report"), std::string::npos);
  }
}

TEST(HidTraceDecoderTest, NamesTheVersionAndCalibrationQueries) {
  const auto line = [](const char* fn, std::initializer_list<std::pair<size_t, uint8_t>> bytes) {
    TraceLine l = CallLine(fn);
    l.dev = 2;
    l.rc = 1;
    auto& report = fn[4] == 's' ? l.in : l.out;
    report = std::vector<uint8_t>(33, 0);
    for (const auto& [at, value] : bytes) (*report)[at] = value;
    return l;
  };
  const auto output = [&](const char* bytes) {
    TraceLine l = line("hid_set_output_report", {});
    l.in = Hex(bytes);
    return l;
  };
  TraceLine open = CallLine("hid_open");
  open.path = "hid#vid_347d&pid_7853&col05#1";
  open.dev = 2;
  const std::pair<TraceLine, std::string> kLines[] = {
      {open, "open hid#vid_347d&pid_7853&col05#1 -> dev 2 col05"},
      {output("0D 07 16 00 00 01 00 04 10"), "output dev 2 col05: force version request -> ok"},
      {line("hid_get_input_report", {{1, 6}, {4, 1}, {6, 2}, {7, 3}}), "input dev 2 col05: force version 1.0.2.3"},
      {output("0D 09 FE 00 00 03 00 00 02 12 EE"), "output dev 2 col05: calibration begin (command 12) -> ok"},
      {output("0D 07 02 00 00 01 00 02 02"), "output dev 2 col05: status request -> ok"},
      {line("hid_get_input_report", {{5, 1}}), "input dev 2 col05: status busy"},
      {output("0D 07 AC 01 00 01 00 15 BE"), "output dev 2 col05: calibration data request -> ok"},
      {line("hid_get_input_report", {{4, 1}, {6, 0xFF}, {7, 0xFF}, {20, 1}}),
       "input dev 2 col05: calibration data 1 -1 0 0 0 0 0"},
  };
  TraceDecoder decoder(TraceLibrary::kHid);
  for (const auto& [l, decoded] : kLines) EXPECT_EQ(decoder.Decode(l), decoded);
}

TEST_F(ReplayTest, ATraceReadsBackAsItWasWritten) {
  Trace read;
  std::string error;
  ASSERT_TRUE(ParseTrace(FormatTrace(recorded_->upgrade), "t", &read, &error)) << error;
  EXPECT_EQ(FormatTrace(read), FormatTrace(recorded_->upgrade));
  const ReplayOutcome outcome = ReplayUpdate({read}, *package_);
  EXPECT_EQ(outcome.exitCode, kReplayMatched);
}

}  // namespace
}  // namespace calder::replay
