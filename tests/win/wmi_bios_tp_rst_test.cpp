#include <windows.h>
#include <objbase.h>
#include <oleauto.h>
#include <wbemidl.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "bios/win32/wmi_com_connector.h"
#include "bios/wmi_bios_tp_rst.h"
#include "tests/support/log_capture.h"

namespace calder {
namespace {

using Strings = std::vector<std::string>;

// The ten steps whose HRESULT is checked, in calling order.
enum Step { kSecurity, kLocator, kConnect, kBlanket, kGetObject, kGetMethod, kSpawn, kPut,
            kExec, kGet, kNoFailure };

struct Script {
  int failAt = kNoFailure;
  HRESULT securityResult = S_OK;
  Strings events;  // calls with their arguments and releases, in order
};
Script* g_script = nullptr;

// A distinct failure code per step, so each message shows its own code.
HRESULT FailureOf(int step) { return static_cast<HRESULT>(0x80041000u + step); }

bool Fails(int step) { return g_script->failAt == step; }

std::string Narrow(const wchar_t* text) {
  if (text == nullptr) return "null";
  std::string out;
  for (; *text != 0; ++text) out += static_cast<char>(*text);
  return out;
}

const char* NullOr(const void* p, const char* what) { return p == nullptr ? "null" : what; }

template <typename Interface>
class Fake : public Interface {
 public:
  explicit Fake(const char* name) : name_(name) {}
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** out) override {
    *out = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
  ULONG STDMETHODCALLTYPE Release() override {
    g_script->events.push_back(std::string("Release ") + name_);
    return --refs_;
  }
  // Handed out with one reference; back to zero once the caller let go.
  void HandOut() { refs_ = 1; }
  LONG refs() const { return refs_; }

 private:
  const char* name_;
  LONG refs_ = 0;
};

class FakeClassObject : public Fake<IWbemClassObject> {
 public:
  using Fake::Fake;
  HRESULT STDMETHODCALLTYPE Get(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE* type,
                                LONG* flavor) override;
  HRESULT STDMETHODCALLTYPE Put(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE type) override;
  HRESULT STDMETHODCALLTYPE GetMethod(LPCWSTR name, LONG flags, IWbemClassObject** in,
                                      IWbemClassObject** out) override;
  HRESULT STDMETHODCALLTYPE SpawnInstance(LONG flags, IWbemClassObject** instance) override;
  HRESULT STDMETHODCALLTYPE GetQualifierSet(IWbemQualifierSet**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Delete(LPCWSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetNames(LPCWSTR, LONG, VARIANT *, SAFEARRAY **) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE BeginEnumeration(LONG) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Next(LONG, BSTR *, VARIANT *, CIMTYPE *, LONG *) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE EndEnumeration() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetPropertyQualifierSet(LPCWSTR, IWbemQualifierSet **) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Clone(IWbemClassObject **) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetObjectText(LONG, BSTR *) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SpawnDerivedClass(LONG, IWbemClassObject **) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE CompareTo(LONG, IWbemClassObject *) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetPropertyOrigin(LPCWSTR, BSTR *) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE InheritsFrom(LPCWSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE PutMethod(LPCWSTR, LONG, IWbemClassObject *, IWbemClassObject *) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE DeleteMethod(LPCWSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE BeginMethodEnumeration(LONG) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE NextMethod(LONG, BSTR *, IWbemClassObject **, IWbemClassObject **) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE EndMethodEnumeration() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetMethodQualifierSet(LPCWSTR, IWbemQualifierSet **) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetMethodOrigin(LPCWSTR, BSTR *) override { return E_NOTIMPL; }
};

class FakeServices : public Fake<IWbemServices> {
 public:
  using Fake::Fake;
  HRESULT STDMETHODCALLTYPE GetObject(const BSTR path, LONG flags, IWbemContext* context,
                                      IWbemClassObject** object,
                                      IWbemCallResult** callResult) override;
  HRESULT STDMETHODCALLTYPE ExecMethod(const BSTR path, const BSTR method, LONG flags,
                                       IWbemContext* context, IWbemClassObject* in,
                                       IWbemClassObject** out,
                                       IWbemCallResult** callResult) override;
  HRESULT STDMETHODCALLTYPE OpenNamespace(const BSTR, LONG, IWbemContext *, IWbemServices **, IWbemCallResult **) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE CancelAsyncCall(IWbemObjectSink *) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE QueryObjectSink(LONG, IWbemObjectSink **) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetObjectAsync(const BSTR, LONG, IWbemContext *, IWbemObjectSink *) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE PutClass(IWbemClassObject *, LONG, IWbemContext *, IWbemCallResult **) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE PutClassAsync(IWbemClassObject *, LONG, IWbemContext *, IWbemObjectSink *) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE DeleteClass(const BSTR, LONG, IWbemContext *, IWbemCallResult **) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE DeleteClassAsync(const BSTR, LONG, IWbemContext *, IWbemObjectSink *) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE CreateClassEnum(const BSTR, LONG, IWbemContext *, IEnumWbemClassObject **) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE CreateClassEnumAsync(const BSTR, LONG, IWbemContext *, IWbemObjectSink *) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE PutInstance(IWbemClassObject *, LONG, IWbemContext *, IWbemCallResult **) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE PutInstanceAsync(IWbemClassObject *, LONG, IWbemContext *, IWbemObjectSink *) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE DeleteInstance(const BSTR, LONG, IWbemContext *, IWbemCallResult **) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE DeleteInstanceAsync(const BSTR, LONG, IWbemContext *, IWbemObjectSink *) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE CreateInstanceEnum(const BSTR, LONG, IWbemContext *, IEnumWbemClassObject **) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE CreateInstanceEnumAsync(const BSTR, LONG, IWbemContext *, IWbemObjectSink *) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE ExecQuery(const BSTR, const BSTR, LONG, IWbemContext *, IEnumWbemClassObject **) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE ExecQueryAsync(const BSTR, const BSTR, LONG, IWbemContext *, IWbemObjectSink *) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE ExecNotificationQuery(const BSTR, const BSTR, LONG, IWbemContext *, IEnumWbemClassObject **) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE ExecNotificationQueryAsync(const BSTR, const BSTR, LONG, IWbemContext *, IWbemObjectSink *) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE ExecMethodAsync(const BSTR, const BSTR, LONG, IWbemContext *, IWbemClassObject *, IWbemObjectSink *) override { return E_NOTIMPL; }
};

class FakeLocator : public Fake<IWbemLocator> {
 public:
  using Fake::Fake;
  HRESULT STDMETHODCALLTYPE ConnectServer(const BSTR ns, const BSTR user, const BSTR password,
                                          const BSTR locale, LONG flags, const BSTR authority,
                                          IWbemContext* context,
                                          IWbemServices** services) override;
};

FakeLocator g_locator("locator");
FakeServices g_services("services");
FakeClassObject g_class("class");
FakeClassObject g_inSignature("in-signature");
FakeClassObject g_inParams("in-params");
FakeClassObject g_outParams("out-params");
FakeClassObject g_outData("OutData");  // the value "OutData" holds

template <typename T, typename Object>
HRESULT Give(int step, Object* object, T** slot) {
  if (Fails(step)) return FailureOf(step);
  object->HandOut();
  *slot = object;
  return S_OK;
}

HRESULT FakeLocator::ConnectServer(const BSTR ns, const BSTR user, const BSTR password,
                                   const BSTR locale, LONG flags, const BSTR authority,
                                   IWbemContext* context, IWbemServices** services) {
  char line[160];
  std::snprintf(line, sizeof line, "ConnectServer(%s,%s,%s,%s,%ld,%s,%s)", Narrow(ns).c_str(),
                NullOr(user, "user"), NullOr(password, "password"), NullOr(locale, "locale"),
                static_cast<long>(flags), NullOr(authority, "authority"),
                NullOr(context, "context"));
  g_script->events.push_back(line);
  return Give(kConnect, &g_services, services);
}

HRESULT FakeServices::GetObject(const BSTR path, LONG flags, IWbemContext* context,
                                IWbemClassObject** object, IWbemCallResult** callResult) {
  g_script->events.push_back("GetObject(" + Narrow(path) + "," + std::to_string(flags) + "," +
                             NullOr(context, "context") + "," + NullOr(callResult, "result") +
                             ")");
  return Give(kGetObject, &g_class, object);
}

HRESULT FakeServices::ExecMethod(const BSTR path, const BSTR method, LONG flags,
                                 IWbemContext* context, IWbemClassObject* in,
                                 IWbemClassObject** out, IWbemCallResult** callResult) {
  g_script->events.push_back("ExecMethod(" + Narrow(path) + "," + Narrow(method) + "," +
                             std::to_string(flags) + "," + NullOr(context, "context") + "," +
                             (in == &g_inParams ? "in-params" : "other") + "," +
                             NullOr(callResult, "result") + ")");
  return Give(kExec, &g_outParams, out);
}

HRESULT FakeClassObject::GetMethod(LPCWSTR name, LONG flags, IWbemClassObject** in,
                                   IWbemClassObject** out) {
  g_script->events.push_back("GetMethod(" + Narrow(name) + "," + std::to_string(flags) + "," +
                             NullOr(out, "out") + ")");
  return Give(kGetMethod, &g_inSignature, in);
}

HRESULT FakeClassObject::SpawnInstance(LONG flags, IWbemClassObject** instance) {
  g_script->events.push_back("SpawnInstance(" + std::to_string(flags) + ") on " +
                             (this == &g_inSignature ? "in-signature" : "other"));
  return Give(kSpawn, &g_inParams, instance);
}

HRESULT FakeClassObject::Put(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE type) {
  std::string bytes;
  if (V_VT(value) == (VT_ARRAY | VT_UI1)) {
    SAFEARRAY* array = V_ARRAY(value);
    LONG lower = -1, upper = -1;
    SafeArrayGetLBound(array, 1, &lower);
    SafeArrayGetUBound(array, 1, &upper);
    bytes = "[" + std::to_string(lower) + ".." + std::to_string(upper) + "]";
    for (LONG i = lower; i <= upper; ++i) {
      UCHAR byte = 0;
      SafeArrayGetElement(array, &i, &byte);
      char hex[3];
      std::snprintf(hex, sizeof hex, "%02X", byte);
      bytes += hex;
    }
  }
  char vt[8];
  std::snprintf(vt, sizeof vt, "%04X", V_VT(value));
  g_script->events.push_back("Put(" + Narrow(name) + "," + std::to_string(flags) + "," + vt +
                             bytes + "," + std::to_string(type) + ") on " +
                             (this == &g_inParams ? "in-params" : "other"));
  return Fails(kPut) ? FailureOf(kPut) : S_OK;
}

HRESULT FakeClassObject::Get(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE* type,
                             LONG* flavor) {
  g_script->events.push_back("Get(" + Narrow(name) + "," + std::to_string(flags) + "," +
                             NullOr(type, "type") + "," + NullOr(flavor, "flavor") + ") on " +
                             (this == &g_outParams ? "out-params" : "other"));
  if (Fails(kGet)) return FailureOf(kGet);
  g_outData.HandOut();
  V_VT(value) = VT_UNKNOWN;
  V_UNKNOWN(value) = &g_outData;
  return S_OK;
}

HRESULT WINAPI FakeInitializeSecurity(PSECURITY_DESCRIPTOR descriptor, LONG count,
                                      SOLE_AUTHENTICATION_SERVICE* services, void* reserved1,
                                      DWORD authnLevel, DWORD impLevel, void* authList,
                                      DWORD capabilities, void* reserved3) {
  char line[160];
  std::snprintf(line, sizeof line, "CoInitializeSecurity(%s,%ld,%s,%s,%lu,%lu,%s,%lu,%s)",
                NullOr(descriptor, "sd"), static_cast<long>(count), NullOr(services, "svc"),
                NullOr(reserved1, "r1"), authnLevel, impLevel, NullOr(authList, "list"),
                capabilities, NullOr(reserved3, "r3"));
  g_script->events.push_back(line);
  return Fails(kSecurity) ? FailureOf(kSecurity) : g_script->securityResult;
}

HRESULT WINAPI FakeCreateInstance(REFCLSID clsid, LPUNKNOWN outer, DWORD context, REFIID iid,
                                  LPVOID* object) {
  g_script->events.push_back(
      std::string("CoCreateInstance(") +
      (IsEqualCLSID(clsid, CLSID_WbemLocator) ? "WbemLocator" : "other") + "," +
      NullOr(outer, "outer") + "," + std::to_string(context) + "," +
      (IsEqualIID(iid, IID_IWbemLocator) ? "IWbemLocator" : "other") + ")");
  IWbemLocator* locator = nullptr;
  const HRESULT hr = Give(kLocator, &g_locator, &locator);
  *object = locator;
  return hr;
}

HRESULT WINAPI FakeSetProxyBlanket(IUnknown* proxy, DWORD authn, DWORD authz, OLECHAR* principal,
                                   DWORD authnLevel, DWORD impLevel,
                                   RPC_AUTH_IDENTITY_HANDLE identity, DWORD capabilities) {
  char line[160];
  std::snprintf(line, sizeof line, "CoSetProxyBlanket(%s,%lu,%lu,%s,%lu,%lu,%s,%lu)",
                proxy == static_cast<IWbemServices*>(&g_services) ? "services" : "other", authn,
                authz, NullOr(principal, "name"), authnLevel, impLevel,
                NullOr(identity, "identity"), capabilities);
  g_script->events.push_back(line);
  return Fails(kBlanket) ? FailureOf(kBlanket) : S_OK;
}

const Strings kCallsInOrder = {
    "CoInitializeSecurity(null,-1,null,null,0,3,null,0,null)",
    "CoCreateInstance(WbemLocator,null,1,IWbemLocator)",
    "ConnectServer(root\\wmi,null,null,null,0,null,null)",
    "CoSetProxyBlanket(services,10,0,null,3,3,null,0)",
    "GetObject(KORUCommonInterface,0,null,null)",
    "GetMethod(KoruInterface,0,null)",
    "SpawnInstance(0) on in-signature",
    "Put(InData,0,2011[0..31]00FB000A000004000000000000000000000000000000000000000000"
    "00000000,0) on in-params",
    "ExecMethod(KORUCommonInterface.InstanceName='ACPI\\PNP0C14\\KORUFS_0',KoruInterface,0,"
    "null,in-params,null)",
    "Get(OutData,0,null,null) on out-params",
};

// Releases after the given step failed: what was obtained, in release order.
Strings ReleasesAfter(int failedStep) {
  Strings releases;
  if (failedStep > kGet) releases.push_back("Release OutData");  // the output value
  const std::vector<std::pair<int, const char*>> order = {
      {kGetObject, "Release class"}, {kSpawn, "Release in-params"},
      {kGetMethod, "Release in-signature"}, {kExec, "Release out-params"},
      {kLocator, "Release locator"}, {kConnect, "Release services"}};
  for (const auto& [obtainedAt, line] : order) {
    if (obtainedAt < failedStep) releases.push_back(line);
  }
  return releases;
}

const char* const kFailureMessages[] = {
    "Failed to initialize security. Error code = ",
    "Failed to create IWbemLocator object. Err code = ",
    "Could not connect. Error code = ",
    "Could not set proxy blanket. Error code = ",
    "Could not get object. Error code = ",
    "Could not get method. Error code =  ",
    "Could not spawn instance. Error code = ",
    "Could not put parameter. Error code = ",
    "Could not execute method. Error code = ",
    "Could not get output. Error code = ",
};

class WmiFakeComTest : public testing::Test {
 protected:
  WmiFakeComTest() : wmi_({&FakeInitializeSecurity, &FakeCreateInstance, &FakeSetProxyBlanket}) {
    g_script = &script;
  }
  ~WmiFakeComTest() override { g_script = nullptr; }

  bool Run() { return WMIBiosTPReset(wmi_); }

  static void ExpectAllReleased() {
    for (const auto* object : std::vector<const Fake<IWbemClassObject>*>{
             &g_class, &g_inSignature, &g_inParams, &g_outParams, &g_outData}) {
      EXPECT_EQ(object->refs(), 0);
    }
    EXPECT_EQ(g_locator.refs(), 0);
    EXPECT_EQ(g_services.refs(), 0);
  }

  Script script;
  test::LogCapture log;

 private:
  ComWmiConnector wmi_;
};

TEST_F(WmiFakeComTest, EveryStepInOrderWithItsArgumentsThenEverythingReleased) {
  EXPECT_TRUE(Run());
  Strings expected = kCallsInOrder;
  for (const std::string& release : ReleasesAfter(kNoFailure)) expected.push_back(release);
  EXPECT_EQ(script.events, expected);
  EXPECT_EQ(log.Lines(), (Strings{"INFO wmi_bios_tp_rst.cpp: Connected to root\\wmi WMI namespace"}));
  ExpectAllReleased();
}

TEST_F(WmiFakeComTest, EachFailingStepLogsItsCodeAndReleasesWhatItObtained) {
  for (int step = kSecurity; step <= kGet; ++step) {
    SCOPED_TRACE(kFailureMessages[step]);
    script = Script();
    script.failAt = step;
    log.Clear();
    EXPECT_FALSE(Run());
    Strings expected(kCallsInOrder.begin(), kCallsInOrder.begin() + step + 1);
    for (const std::string& release : ReleasesAfter(step)) expected.push_back(release);
    EXPECT_EQ(script.events, expected);
    Strings lines;
    if (step > kConnect) lines.push_back("INFO wmi_bios_tp_rst.cpp: Connected to root\\wmi WMI namespace");
    lines.push_back(std::string("INFO wmi_bios_tp_rst.cpp: ") + kFailureMessages[step] +
                    std::to_string(static_cast<int32_t>(FailureOf(step))));
    EXPECT_EQ(log.Lines(), lines);
    ExpectAllReleased();
  }
}

TEST_F(WmiFakeComTest, SecurityAlreadySetIsSkippedWithItsLine) {
  script.securityResult = RPC_E_TOO_LATE;
  EXPECT_TRUE(Run());
  EXPECT_EQ(log.Lines(),
            (Strings{"INFO wmi_bios_tp_rst.cpp: CoInitializeSecurity already called by another "
                     "module, skipping.",
                     "INFO wmi_bios_tp_rst.cpp: Connected to root\\wmi WMI namespace"}));
  EXPECT_EQ(script.events.size(), kCallsInOrder.size() + ReleasesAfter(kNoFailure).size());
}

const Strings kNoBiosClass = {
    "INFO wmi_bios_tp_rst.cpp: Connected to root\\wmi WMI namespace",
    "INFO wmi_bios_tp_rst.cpp: Could not get object. Error code = -2147217406"};

// Wine has WMI but no BIOS class: real COM fails at GetObject with
// WBEM_E_NOT_FOUND. Wine's CoInitializeSecurity accepts every call, so both
// calls look the same.
TEST(WmiWineTest, NoBiosClassFailsAtGetObject) {
  ASSERT_GE(CoInitializeEx(nullptr, COINIT_MULTITHREADED), 0);
  {
    test::LogCapture log;
    ComWmiConnector wmi;
    EXPECT_FALSE(WMIBiosTPReset(wmi));
    EXPECT_FALSE(WMIBiosTPReset(wmi));
    Strings expected = kNoBiosClass;
    expected.insert(expected.end(), kNoBiosClass.begin(), kNoBiosClass.end());
    EXPECT_EQ(log.Lines(), expected);
  }
  CoUninitialize();
}

// Windows lets a process set COM security once; later calls get
// RPC_E_TOO_LATE. With that rule in front of Wine's real COM, a second call
// skips the set-up with its line and still makes the method call.
HRESULT WINAPI SecurityOncePerProcess(PSECURITY_DESCRIPTOR descriptor, LONG count,
                                      SOLE_AUTHENTICATION_SERVICE* services, void* reserved1,
                                      DWORD authnLevel, DWORD impLevel, void* authList,
                                      DWORD capabilities, void* reserved3) {
  static bool done = false;
  if (done) return RPC_E_TOO_LATE;
  done = true;
  return CoInitializeSecurity(descriptor, count, services, reserved1, authnLevel, impLevel,
                              authList, capabilities, reserved3);
}

TEST(WmiWineTest, SecondCallInOneProcessSkipsSecurityAndGoesOn) {
  ASSERT_GE(CoInitializeEx(nullptr, COINIT_MULTITHREADED), 0);
  {
    test::LogCapture log;
    WmiComHooks hooks = RealWmiComHooks();
    hooks.initializeSecurity = &SecurityOncePerProcess;
    ComWmiConnector wmi(hooks);
    EXPECT_FALSE(WMIBiosTPReset(wmi));
    EXPECT_FALSE(WMIBiosTPReset(wmi));
    Strings expected = kNoBiosClass;
    expected.push_back("INFO wmi_bios_tp_rst.cpp: CoInitializeSecurity already called by "
                       "another module, skipping.");
    expected.insert(expected.end(), kNoBiosClass.begin(), kNoBiosClass.end());
    EXPECT_EQ(log.Lines(), expected);
  }
  CoUninitialize();
}

}  // namespace
}  // namespace calder
