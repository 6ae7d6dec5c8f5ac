#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "touchpad/btl_upgrade_config.h"
#include "trace/trace_reader.h"
#include "trace/trace_writer.h"

namespace calder {
namespace {

TraceLine Call(const char* fn, std::optional<int32_t> rc = 0) {
  TraceLine line = CallLine(fn);
  line.rc = rc;
  return line;
}

template <typename Change>
TraceLine With(TraceLine line, Change change) {
  change(line);
  return line;
}

TraceLine Callback(const char* cb, int32_t value, std::optional<std::string> text) {
  TraceLine line;
  line.cb = cb;
  line.value = value;
  line.text = std::move(text);
  return line;
}

// Every kind of line the recorders write, as the format gives its text, read
// back to the same text.
TEST(TraceFormat, EveryKindOfLineIsWrittenAsTheFormatSaysAndReadsBackTheSame) {
  using B = std::vector<uint8_t>;
  btl_upgrade_config record = BuildUpgradeConfig("ACPI\\BLTP7853", 0x41, 1, [](int32_t, const char*) {}, nullptr);
  const struct {
    TraceLibrary library;
    TraceLine line;
    std::string text;  // after {"seq":N,"t_us":N,
  } kCases[] = {
      {TraceLibrary::kBridge, Call("btl_init_driver_7853", -1), R"("fn":"btl_init_driver_7853","rc":-1})"},
      {TraceLibrary::kBridge, With(Call("btl_write_data"), [](TraceLine& l) { l.in = B{0xff, 0x52, 0x0e, 0}; l.len = 4; }),
       R"("fn":"btl_write_data","in":"ff520e00","len":4,"rc":0})"},
      {TraceLibrary::kBridge, With(Call("btl_write_data"), [](TraceLine& l) { l.len = 4; }),
       R"("fn":"btl_write_data","in":null,"len":4,"rc":0})"},
      {TraceLibrary::kBridge, With(Call("btl_read_data", 2), [](TraceLine& l) { l.out = B{}; l.len = -1; }),
       R"("fn":"btl_read_data","out":"","len":-1,"rc":2})"},
      {TraceLibrary::kBridge, With(Call("btl_read_data"), [](TraceLine& l) { l.len = 14; }),
       R"("fn":"btl_read_data","out":null,"len":14,"rc":0})"},
      {TraceLibrary::kUpgrade, With(Call("btl_upgrade_init"), [&](TraceLine& l) { l.config = RecordedConfig(&record); }),
       R"("fn":"btl_upgrade_init","config":{"hwId":"ACPI\\BLTP7853","chipId":65,"haveBoot":1,)"
       R"("options":[0,1,0],"progress":true,"log":false},"rc":0})"},
      {TraceLibrary::kUpgrade, With(Call("btl_upgrade_init"), [&](TraceLine& l) { l.config = RecordedConfig(nullptr); }),
       R"("fn":"btl_upgrade_init","config":null,"rc":0})"},
      {TraceLibrary::kUpgrade, Callback("progress", 50, "a \"q\\\" \n\t\x01\xe9\x7f"),
       R"("cb":"progress","value":50,"text":"a \"q\\\" \n\t\u0001\u00e9\u007f"})"},
      {TraceLibrary::kUpgrade, Callback("log", -1, std::nullopt), R"("cb":"log","level":-1,"text":null})"},
      {TraceLibrary::kUpgrade, With(Call("btl_upgrade_from_file", 12), [](TraceLine& l) { l.path = "TP\\\xe4.bin"; }),
       R"("fn":"btl_upgrade_from_file","path":"TP\\\u00e4.bin","sha256":null,"rc":12})"},
      {TraceLibrary::kUpgrade, With(Call("btl_check_need_upgrade"), [](TraceLine& l) {
         l.sha256 = std::string(64, 'a'); l.in = B{0, 0, 0, 0}; l.out = B{1, 0, 0, 0}; }),
       R"("fn":"btl_check_need_upgrade","path":null,"sha256":")" + std::string(64, 'a') +
           R"(","in":"00000000","out":"01000000","rc":0})"},
      {TraceLibrary::kUpgrade, With(Call("btl_get_chip_id"), [](TraceLine& l) { l.out = B{0x41}; }),
       R"("fn":"btl_get_chip_id","in":null,"out":"41","rc":0})"},
      {TraceLibrary::kUpgrade, Call("btl_upgrade_deinit", std::nullopt), R"("fn":"btl_upgrade_deinit"})"},
      {TraceLibrary::kUpgrade, With(TraceLine(), [](TraceLine& l) { l.refused = "vendor\\btl_upgrade.dll"; l.why = "w"; }),
       R"("refused":"vendor\\btl_upgrade.dll","why":"w"})"},
  };
  for (const auto& c : kCases) {
    Trace trace;
    trace.library = c.library;
    trace.lines = {c.line};
    trace.lines[0].seq = 1;
    trace.lines[0].tUs = 7;
    if (c.line.isCall()) trace.lines[0].retUs = 9;
    const std::string line =
        std::string("{\"seq\":1,\"t_us\":7,") + (c.line.isCall() ? "\"ret_us\":9," : "") + c.text + "\n";
    EXPECT_EQ(FormatTrace(trace), FormatTraceHeader(trace) + line);
    Trace read;
    std::string error;
    ASSERT_TRUE(ParseTrace(FormatTrace(trace), "t", &read, &error)) << error;
    ASSERT_EQ(read.lines.size(), 1u) << line;
    EXPECT_EQ(FormatTrace(read), FormatTrace(trace));
    EXPECT_EQ(read.lines[0].text, c.line.text);
    EXPECT_EQ(read.lines[0].path, c.line.path);
  }
}

TEST(TraceFormat, EveryByteOfATextReadsBackAsThatByte) {
  std::string bytes;
  for (int b = 0; b < 256; ++b) bytes += static_cast<char>(b);
  Trace trace;
  trace.library = TraceLibrary::kUpgrade;
  trace.lines = {Callback("log", 0, bytes), Callback("log", 0, "\xc3\xa9 \xf0\x9f\x98\x80")};
  trace.lines[0].seq = 1;
  trace.lines[1].seq = 2;
  Trace read;
  std::string error;
  ASSERT_TRUE(ParseTrace(FormatTrace(trace), "t", &read, &error)) << error;
  EXPECT_EQ(read.lines[0].text, bytes);
  EXPECT_EQ(read.lines[1].text, trace.lines[1].text);
  // Texts another writer left as UTF-8 or escaped past one byte read as UTF-8.
  const std::string foreign = FormatTraceHeader(trace) +
                              "{\"seq\":1,\"t_us\":0,\"cb\":\"log\",\"level\":0,\"text\":\"\xc3\xa9\\u20ac\\ud83d\\ude00\"}\n";
  ASSERT_TRUE(ParseTrace(foreign, "t", &read, &error)) << error;
  EXPECT_EQ(read.lines[0].text, "\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80");
}

TEST(TraceFormat, AWriterNumbersItsLinesAndTheFileNameAndHeaderAreAsTheFormatGivesThem) {
  struct Lines : TraceSink {
    void Append(const std::string& text) override { all += text; }
    std::string all;
  } sink;
  TraceWriter writer(sink, TraceLibrary::kBridge);
  TraceLine open = Call("btl_open_device");
  open.retUs = 0;
  writer.Write(open);
  writer.Write(open);
  EXPECT_EQ(sink.all, "{\"seq\":1,\"t_us\":0,\"ret_us\":0,\"fn\":\"btl_open_device\",\"rc\":0}\n"
                      "{\"seq\":2,\"t_us\":0,\"ret_us\":0,\"fn\":\"btl_open_device\",\"rc\":0}\n");
  const LocalTime t{2026, 11, 5, 3, 4, 15};
  EXPECT_EQ(TraceFileName(t, 1234, "bridge"), "CalderTrace_2026-11-05_030415_1234_bridge.ndjson");
  EXPECT_EQ(IsoLocalTime(t, 60), "2026-11-05T03:04:15+01:00");
  EXPECT_EQ(IsoLocalTime(t, -330), "2026-11-05T03:04:15-05:30");
  Trace header;
  header.library = TraceLibrary::kUpgrade;
  header.started = "S";
  header.pid = 7;
  EXPECT_EQ(FormatTraceHeader(header), "{\"calder_trace\":2,\"library\":\"btl_upgrade.dll\",\"vendor_sha256\":null,"
                                       "\"started\":\"S\",\"pid\":7}\n");
}

}  // namespace
}  // namespace calder
