#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <string>
#include <vector>

#include "bios/wmi_bios_tp_rst.h"
#include "platform/environment.h"
#include "platform/wmi_connector.h"
#include "tests/support/log_capture.h"

namespace calder {
namespace {

using Strings = std::vector<std::string>;

std::string Narrow(const char16_t* text) {
  return std::string(text, text + std::char_traits<char16_t>::length(text));
}

// Records every call; strings and objects are handed out as names so frees
// and releases show which one they were given. The named step fails.
class RecordingWmi : public WmiConnector {
 public:
  explicit RecordingWmi(std::string failingStep = "", int32_t code = kEFail)
      : failing_(std::move(failingStep)), code_(code) {}
  static constexpr int32_t kEFail = static_cast<int32_t>(0x80004005u);

  void InitVariant(WmiVariant v) override { calls.push_back("VariantInit " + Name(v)); }
  void ClearVariant(WmiVariant v) override { calls.push_back("VariantClear " + Name(v)); }
  int32_t InitializeSecurity() override { return Step("InitializeSecurity"); }
  int32_t CreateLocator(WmiObject* o) override { return Make("CreateLocator", "locator", o); }
  int32_t ConnectServer(WmiObject, const char16_t* ns, WmiObject* o) override { return Make("ConnectServer " + Narrow(ns), "services", o); }
  int32_t SetProxyBlanket(WmiObject o) override { return Step("SetProxyBlanket " + Of(o)); }
  WmiString AllocString(const char16_t* text) override {
    names_.push_back(Narrow(text));
    calls.push_back("SysAllocString " + names_.back());
    return &names_.back();
  }
  void FreeString(WmiString s) override { calls.push_back("SysFreeString " + Of(s)); }
  int32_t GetClassObject(WmiObject, WmiString name, WmiObject* o) override { return Make("GetObject " + Of(name), "class", o); }
  int32_t GetMethodSignature(WmiObject, WmiString name, WmiObject* o) override { return Make("GetMethod " + Of(name), "in-signature", o); }
  int32_t SpawnInstance(WmiObject, WmiObject* o) override { return Make("SpawnInstance", "in-params", o); }
  void SetBytes(WmiVariant v, const uint8_t* bytes, size_t count) override {
    calls.push_back("SetBytes " + Name(v) + " " + std::to_string(count));
    sent.assign(bytes, bytes + count);
  }
  int32_t Put(WmiObject o, const char16_t* p, WmiVariant v) override { return Step("Put " + Of(o) + " " + Narrow(p) + " " + Name(v)); }
  int32_t ExecMethod(WmiObject, WmiString path, WmiString method, WmiObject in, WmiObject* o) override {
    return Make("ExecMethod " + Of(path) + " " + Of(method) + " " + Of(in), "out-params", o);
  }
  int32_t Get(WmiObject o, const char16_t* p, WmiVariant v) override { return Step("Get " + Of(o) + " " + Narrow(p) + " " + Name(v)); }
  void Release(WmiObject o) override { calls.push_back("Release " + Of(o)); }

  Strings calls;
  std::vector<uint8_t> sent;

 private:
  static std::string Name(WmiVariant v) { return v == WmiVariant::Input ? "in" : "out"; }
  static std::string Of(void* p) { return *static_cast<std::string*>(p); }
  int32_t Step(const std::string& call) {
    calls.push_back(call);
    const bool fails = call.substr(0, call.find(' ')) == failing_;
    return fails ? code_ : 0;
  }
  int32_t Make(const std::string& call, const std::string& name, WmiObject* o) {
    const int32_t hr = Step(call);
    // A failed call may still leave something in its out slot; it is not the caller's to release.
    *o = &names_.emplace_back(hr == 0 ? name : "left-over " + name);
    return hr;
  }

  std::string failing_;
  int32_t code_;
  std::deque<std::string> names_;  // stable addresses for the handles
};

const char kPath[] = "KORUCommonInterface.InstanceName='ACPI\\PNP0C14\\KORUFS_0'";

TEST(WmiResetCore, NamesAreMadeOnceAndEverythingGoesBackInOrder) {
  test::LogCapture log;
  RecordingWmi wmi;
  EXPECT_TRUE(WMIBiosTPReset(wmi));
  EXPECT_EQ(log.Lines(), (Strings{"INFO wmi_bios_tp_rst.cpp: Connected to root\\wmi WMI namespace"}));
  EXPECT_EQ(wmi.calls, (Strings{
      "VariantInit in", "VariantInit out", "InitializeSecurity", "CreateLocator",
      "ConnectServer root\\wmi", "SetProxyBlanket services", "SysAllocString KoruInterface",
      "SysAllocString KORUCommonInterface", std::string("SysAllocString ") + kPath,
      "GetObject KORUCommonInterface", "GetMethod KoruInterface", "SpawnInstance",
      "SetBytes in 32", "Put in-params InData in", std::string("ExecMethod ") + kPath + " KoruInterface in-params",
      "Get out-params OutData out", "VariantClear in", "VariantClear out", "SysFreeString KORUCommonInterface",
      "SysFreeString KoruInterface", std::string("SysFreeString ") + kPath, "Release class",
      "Release in-params", "Release in-signature", "Release out-params", "Release locator", "Release services"}));
  EXPECT_EQ(wmi.sent, (std::vector<uint8_t>{0x00, 0xFB, 0x00, 0x0A, 0x00, 0x00, 0x04, 0x00,
                                            0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

struct FailureCase {
  const char* step;
  const char* message;
  Strings released;  // after the two variants are cleared; "names" frees the three names
};

class WmiFailureTest : public testing::TestWithParam<FailureCase> {};

TEST_P(WmiFailureTest, LogsTheStepsCodeAndGivesBackWhatWasObtained) {
  test::LogCapture log;
  RecordingWmi wmi(GetParam().step);
  EXPECT_FALSE(WMIBiosTPReset(wmi));
  Strings tail = {"VariantClear in", "VariantClear out"};
  for (const std::string& item : GetParam().released) {
    if (item != "names") tail.push_back("Release " + item);
    for (const std::string name : {"KORUCommonInterface", "KoruInterface", kPath}) {
      if (item == "names") tail.push_back("SysFreeString " + name);
    }
  }
  ASSERT_GE(wmi.calls.size(), tail.size());
  EXPECT_EQ(Strings(wmi.calls.end() - tail.size(), wmi.calls.end()), tail);
  EXPECT_EQ(wmi.calls[wmi.calls.size() - tail.size() - 1].rfind(GetParam().step, 0), 0u);
  const std::string line = std::string("INFO wmi_bios_tp_rst.cpp: ") + GetParam().message + "-2147467259";
  EXPECT_EQ(log.Lines().back(), line);
  // Connected exactly when the services object was obtained.
  const Strings& r = GetParam().released;
  EXPECT_EQ(log.Contains("Connected to root\\wmi WMI namespace"), std::count(r.begin(), r.end(), "services") == 1);
  EXPECT_EQ(log.Lines().size(), log.Contains("Connected to root\\wmi WMI namespace") ? 2u : 1u);
}

INSTANTIATE_TEST_SUITE_P(Steps, WmiFailureTest, testing::Values(
        FailureCase{"InitializeSecurity", "Failed to initialize security. Error code = ", {}},
        FailureCase{"CreateLocator", "Failed to create IWbemLocator object. Err code = ", {}},
        FailureCase{"ConnectServer", "Could not connect. Error code = ", {"locator"}},
        FailureCase{"SetProxyBlanket", "Could not set proxy blanket. Error code = ", {"locator", "services"}},
        FailureCase{"GetObject", "Could not get object. Error code = ", {"names", "locator", "services"}},
        FailureCase{"GetMethod", "Could not get method. Error code =  ", {"names", "class", "locator", "services"}},
        FailureCase{"SpawnInstance", "Could not spawn instance. Error code = ",
                    {"names", "class", "in-signature", "locator", "services"}},
        FailureCase{"Put", "Could not put parameter. Error code = ",
                    {"names", "class", "in-params", "in-signature", "locator", "services"}},
        FailureCase{"ExecMethod", "Could not execute method. Error code = ",
                    {"names", "class", "in-params", "in-signature", "locator", "services"}},
        FailureCase{"Get", "Could not get output. Error code = ",
                    {"names", "class", "in-params", "in-signature", "out-params", "locator", "services"}}));

TEST(WmiResetCore, SecuritySetEarlierIsSkippedWithALine) {
  test::LogCapture log;
  RecordingWmi wmi("InitializeSecurity", static_cast<int32_t>(0x80010119u));  // RPC_E_TOO_LATE
  EXPECT_TRUE(WMIBiosTPReset(wmi));
  EXPECT_EQ(log.Lines(), (Strings{"INFO wmi_bios_tp_rst.cpp: CoInitializeSecurity already called by another module, skipping.",
                                  "INFO wmi_bios_tp_rst.cpp: Connected to root\\wmi WMI namespace"}));
}

TEST(WmiResetCore, WithoutAConnectorTheResetFailsWithALine) {
  test::LogCapture log;
  ScopedEnvironment scope(Environment{});
  EXPECT_FALSE(WMIBiosTPReset());
  EXPECT_EQ(log.Lines(), (Strings{"INFO wmi_bios_tp_rst.cpp: WMI is not available in this build"}));
}

}  // namespace
}  // namespace calder
