#include <gtest/gtest.h>

#include "recorder/trace_line.h"

namespace calder::recorder {
namespace {

class Lines : public TraceSink {
 public:
  void Append(const std::string& line) override { text += line; }
  std::string text;
};

TEST(RecorderTrace, LinesCarrySeqTimeAndEachFieldKindAsJson) {
  Lines sink;
  Trace trace(sink);
  const unsigned char frame[] = {0xFF, 0x52, 0x0E, 0x00};
  const uint32_t answer = 0x0000E000;
  trace.Write(trace.Since(5000, true), [&](TraceLine& l) {
    l.Text("fn", "btl_write_data").Hex("in", frame, 4).Int("len", 4).Int("rc", 0);
  });
  trace.Write(trace.Since(5812, false), [&](TraceLine& l) {
    l.Text("cb", "log").Int("level", -1).Text("text", "a \"q\\\" \n\x01\xe9").Text("none", nullptr);
  });
  trace.Write(trace.Since(6000, true), [&](TraceLine& l) {
    l.Hex("out", &answer, 4).Hex("null", nullptr, 4).Hex("short", frame, -1).Bool("b", false);
  });
  EXPECT_EQ(sink.text,
            "{\"seq\":1,\"t_us\":0,\"fn\":\"btl_write_data\",\"in\":\"ff520e00\",\"len\":4,\"rc\":0}\n"
            "{\"seq\":2,\"t_us\":812,\"cb\":\"log\",\"level\":-1,"
            "\"text\":\"a \\\"q\\\\\\\" \\n\\u0001\\u00e9\",\"none\":null}\n"
            "{\"seq\":3,\"t_us\":1000,\"out\":\"00e00000\",\"null\":null,\"short\":\"\",\"b\":false}\n");
}

TEST(RecorderTrace, ConfigRecordNamesWhatIsSetButNoAddress) {
  btl_upgrade_config config = BuildUpgradeConfig(
      "ACPI\\BLTP7853", 0x41, 1, [](int32_t, const char*) {}, nullptr);
  TraceLine line;
  line.Config("config", &config).Config("none", nullptr);
  config.hwId = nullptr;
  line.Config("again", &config);
  EXPECT_EQ(line.Finish(),
            "{\"config\":{\"hwId\":\"ACPI\\\\BLTP7853\",\"chipId\":65,\"haveBoot\":1,"
            "\"options\":[0,1,0],\"progress\":true,\"log\":false},\"none\":null,"
            "\"again\":{\"hwId\":null,\"chipId\":65,\"haveBoot\":1,\"options\":[0,1,0],"
            "\"progress\":true,\"log\":false}}\n");
}

TEST(RecorderTrace, FileNameAndHeaderAsTheFormatGivesThem) {
  const LocalTime t{2026, 11, 5, 3, 4, 15};
  EXPECT_EQ(TraceFileName(t, 1234, "bridge"), "CalderTrace_2026-11-05_030415_1234_bridge.ndjson");
  EXPECT_EQ(IsoLocalTime(t, 60), "2026-11-05T03:04:15+01:00");
  EXPECT_EQ(IsoLocalTime(t, -330), "2026-11-05T03:04:15-05:30");
  EXPECT_EQ(TraceHeader("btl_upgrade.dll", "", "S", 7, "C:\\pkg"),
            "{\"calder_trace\":1,\"library\":\"btl_upgrade.dll\",\"vendor_sha256\":null,"
            "\"started\":\"S\",\"pid\":7,\"dir\":\"C:\\\\pkg\"}\n");
}

}  // namespace
}  // namespace calder::recorder
