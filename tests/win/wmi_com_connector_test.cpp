#include <windows.h>
#include <objbase.h>
#include <oleauto.h>
#include <wbemidl.h>

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <vector>

#include "platform/win32/wmi_com_connector.h"
#include "bios/wmi_bios_tp_rst.h"

namespace calder {
namespace {

using Strings = std::vector<std::string>;

// The ten COM calls whose HRESULT the reset checks, in calling order.
enum Step { kSecurity, kLocator, kConnect, kBlanket, kGetObject, kGetMethod, kSpawn, kPut,
            kExec, kGet, kNoFailure };

int g_failAt = kNoFailure;
Strings g_calls;  // each call with its arguments

HRESULT Result(int step) { return g_failAt == step ? static_cast<HRESULT>(0x80041000u) : S_OK; }

// Arguments as text: strings as they are, pointers as "null" or "set".
std::string Text(const wchar_t* s) { return s == nullptr ? "null" : std::string(s, s + wcslen(s)); }
std::string Text(const void* p) { return p == nullptr ? "null" : "set"; }
std::string Text(const char* s) { return s; }
std::string Text(const std::string& s) { return s; }
template <typename Number, typename = std::enable_if_t<std::is_integral_v<Number>>>
std::string Text(Number n) { return std::to_string(n); }

template <typename... Args>
void Record(const char* call, Args... args) {
  std::string line = call;
  const char* separator = "(";
  ((line += separator + Text(args), separator = ","), ...);
  g_calls.push_back(line + ")");
}

// What the connector never calls.
#define UNUSED_METHOD(name, ...) \
  HRESULT STDMETHODCALLTYPE name(__VA_ARGS__) override { return E_NOTIMPL; }

template <typename Interface>
class Fake : public Interface {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** out) override {
    *out = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
  ULONG STDMETHODCALLTYPE Release() override { return --refs_; }
  LONG refs() const { return refs_; }

  // Hands this object out with one reference, unless the step fails.
  template <typename T>
  HRESULT Give(int step, T** slot) {
    if (Result(step) != S_OK) return Result(step);
    refs_ = 1;
    *slot = this;
    return S_OK;
  }

 private:
  LONG refs_ = 0;
};

class FakeClassObject : public Fake<IWbemClassObject> {
 public:
  HRESULT STDMETHODCALLTYPE Get(LPCWSTR, LONG, VARIANT*, CIMTYPE*, LONG*) override;
  HRESULT STDMETHODCALLTYPE Put(LPCWSTR, LONG, VARIANT*, CIMTYPE) override;
  HRESULT STDMETHODCALLTYPE GetMethod(LPCWSTR, LONG, IWbemClassObject**,
                                      IWbemClassObject**) override;
  HRESULT STDMETHODCALLTYPE SpawnInstance(LONG, IWbemClassObject**) override;
  UNUSED_METHOD(GetQualifierSet, IWbemQualifierSet**)
  UNUSED_METHOD(Delete, LPCWSTR)
  UNUSED_METHOD(GetNames, LPCWSTR, LONG, VARIANT*, SAFEARRAY**)
  UNUSED_METHOD(BeginEnumeration, LONG)
  UNUSED_METHOD(Next, LONG, BSTR*, VARIANT*, CIMTYPE*, LONG*)
  UNUSED_METHOD(EndEnumeration, )
  UNUSED_METHOD(GetPropertyQualifierSet, LPCWSTR, IWbemQualifierSet**)
  UNUSED_METHOD(Clone, IWbemClassObject**)
  UNUSED_METHOD(GetObjectText, LONG, BSTR*)
  UNUSED_METHOD(SpawnDerivedClass, LONG, IWbemClassObject**)
  UNUSED_METHOD(CompareTo, LONG, IWbemClassObject*)
  UNUSED_METHOD(GetPropertyOrigin, LPCWSTR, BSTR*)
  UNUSED_METHOD(InheritsFrom, LPCWSTR)
  UNUSED_METHOD(PutMethod, LPCWSTR, LONG, IWbemClassObject*, IWbemClassObject*)
  UNUSED_METHOD(DeleteMethod, LPCWSTR)
  UNUSED_METHOD(BeginMethodEnumeration, LONG)
  UNUSED_METHOD(NextMethod, LONG, BSTR*, IWbemClassObject**, IWbemClassObject**)
  UNUSED_METHOD(EndMethodEnumeration, )
  UNUSED_METHOD(GetMethodQualifierSet, LPCWSTR, IWbemQualifierSet**)
  UNUSED_METHOD(GetMethodOrigin, LPCWSTR, BSTR*)
};

class FakeServices : public Fake<IWbemServices> {
 public:
  HRESULT STDMETHODCALLTYPE GetObject(const BSTR, LONG, IWbemContext*, IWbemClassObject**,
                                      IWbemCallResult**) override;
  HRESULT STDMETHODCALLTYPE ExecMethod(const BSTR, const BSTR, LONG, IWbemContext*,
                                       IWbemClassObject*, IWbemClassObject**,
                                       IWbemCallResult**) override;
  UNUSED_METHOD(OpenNamespace, const BSTR, LONG, IWbemContext*, IWbemServices**,
                IWbemCallResult**)
  UNUSED_METHOD(CancelAsyncCall, IWbemObjectSink*)
  UNUSED_METHOD(QueryObjectSink, LONG, IWbemObjectSink**)
  UNUSED_METHOD(GetObjectAsync, const BSTR, LONG, IWbemContext*, IWbemObjectSink*)
  UNUSED_METHOD(PutClass, IWbemClassObject*, LONG, IWbemContext*, IWbemCallResult**)
  UNUSED_METHOD(PutClassAsync, IWbemClassObject*, LONG, IWbemContext*, IWbemObjectSink*)
  UNUSED_METHOD(DeleteClass, const BSTR, LONG, IWbemContext*, IWbemCallResult**)
  UNUSED_METHOD(DeleteClassAsync, const BSTR, LONG, IWbemContext*, IWbemObjectSink*)
  UNUSED_METHOD(CreateClassEnum, const BSTR, LONG, IWbemContext*, IEnumWbemClassObject**)
  UNUSED_METHOD(CreateClassEnumAsync, const BSTR, LONG, IWbemContext*, IWbemObjectSink*)
  UNUSED_METHOD(PutInstance, IWbemClassObject*, LONG, IWbemContext*, IWbemCallResult**)
  UNUSED_METHOD(PutInstanceAsync, IWbemClassObject*, LONG, IWbemContext*, IWbemObjectSink*)
  UNUSED_METHOD(DeleteInstance, const BSTR, LONG, IWbemContext*, IWbemCallResult**)
  UNUSED_METHOD(DeleteInstanceAsync, const BSTR, LONG, IWbemContext*, IWbemObjectSink*)
  UNUSED_METHOD(CreateInstanceEnum, const BSTR, LONG, IWbemContext*, IEnumWbemClassObject**)
  UNUSED_METHOD(CreateInstanceEnumAsync, const BSTR, LONG, IWbemContext*, IWbemObjectSink*)
  UNUSED_METHOD(ExecQuery, const BSTR, const BSTR, LONG, IWbemContext*, IEnumWbemClassObject**)
  UNUSED_METHOD(ExecQueryAsync, const BSTR, const BSTR, LONG, IWbemContext*, IWbemObjectSink*)
  UNUSED_METHOD(ExecNotificationQuery, const BSTR, const BSTR, LONG, IWbemContext*,
                IEnumWbemClassObject**)
  UNUSED_METHOD(ExecNotificationQueryAsync, const BSTR, const BSTR, LONG, IWbemContext*,
                IWbemObjectSink*)
  UNUSED_METHOD(ExecMethodAsync, const BSTR, const BSTR, LONG, IWbemContext*, IWbemClassObject*,
                IWbemObjectSink*)
};

class FakeLocator : public Fake<IWbemLocator> {
 public:
  HRESULT STDMETHODCALLTYPE ConnectServer(const BSTR ns, const BSTR user, const BSTR password,
                                          const BSTR locale, LONG flags, const BSTR authority,
                                          IWbemContext* context,
                                          IWbemServices** services) override;
};

FakeLocator g_locator;
FakeServices g_services;
FakeClassObject g_class, g_inSignature, g_inParams, g_outParams;
FakeClassObject g_outData;  // the object the output property holds

std::string Which(const IWbemClassObject* o) {
  return o == &g_inSignature ? "in-signature" : o == &g_inParams ? "in-params"
                                              : o == &g_outParams ? "out-params" : "other";
}

HRESULT FakeLocator::ConnectServer(const BSTR ns, const BSTR user, const BSTR password,
                                   const BSTR locale, LONG flags, const BSTR authority,
                                   IWbemContext* context, IWbemServices** services) {
  Record("ConnectServer", ns, Text(user), Text(password), Text(locale), flags, Text(authority),
         Text(context));
  return g_services.Give(kConnect, services);
}

HRESULT FakeServices::GetObject(const BSTR path, LONG flags, IWbemContext* context,
                                IWbemClassObject** object, IWbemCallResult** callResult) {
  Record("GetObject", path, flags, Text(context), Text(callResult));
  return g_class.Give(kGetObject, object);
}

HRESULT FakeServices::ExecMethod(const BSTR path, const BSTR method, LONG flags,
                                 IWbemContext* context, IWbemClassObject* in,
                                 IWbemClassObject** out, IWbemCallResult** callResult) {
  Record("ExecMethod", path, method, flags, Text(context), Which(in), Text(callResult));
  return g_outParams.Give(kExec, out);
}

HRESULT FakeClassObject::GetMethod(LPCWSTR name, LONG flags, IWbemClassObject** in,
                                   IWbemClassObject** out) {
  Record("GetMethod", name, flags, Text(out));
  return g_inSignature.Give(kGetMethod, in);
}

HRESULT FakeClassObject::SpawnInstance(LONG flags, IWbemClassObject** instance) {
  Record("SpawnInstance", flags, Which(this));
  return g_inParams.Give(kSpawn, instance);
}

// The value as "type:lower..upper:hex bytes" for a byte array.
std::string Bytes(VARIANT* value) {
  std::string text = std::to_string(V_VT(value));
  if (V_VT(value) != (VT_ARRAY | VT_UI1)) return text;
  LONG lower = -1, upper = -1;
  SafeArrayGetLBound(V_ARRAY(value), 1, &lower);
  SafeArrayGetUBound(V_ARRAY(value), 1, &upper);
  text += ":" + std::to_string(lower) + ".." + std::to_string(upper) + ":";
  for (LONG i = lower; i <= upper; ++i) {
    UCHAR byte = 0;
    SafeArrayGetElement(V_ARRAY(value), &i, &byte);
    text += "0123456789ABCDEF"[byte >> 4];
    text += "0123456789ABCDEF"[byte & 15];
  }
  return text;
}

HRESULT FakeClassObject::Put(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE type) {
  Record("Put", name, flags, Bytes(value), type, Which(this));
  return Result(kPut);
}

HRESULT FakeClassObject::Get(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE* type,
                             LONG* flavor) {
  Record("Get", name, flags, Text(type), Text(flavor), Which(this));
  IUnknown* held = nullptr;
  const HRESULT hr = g_outData.Give(kGet, &held);
  if (hr == S_OK) {
    V_VT(value) = VT_UNKNOWN;
    V_UNKNOWN(value) = held;
  }
  return hr;
}

HRESULT WINAPI FakeInitializeSecurity(PSECURITY_DESCRIPTOR descriptor, LONG count,
                                      SOLE_AUTHENTICATION_SERVICE* services, void* reserved1,
                                      DWORD authnLevel, DWORD impLevel, void* authList,
                                      DWORD capabilities, void* reserved3) {
  Record("CoInitializeSecurity", Text(descriptor), count, Text(services), Text(reserved1),
         authnLevel, impLevel, Text(authList), capabilities, Text(reserved3));
  return Result(kSecurity);
}

HRESULT WINAPI FakeCreateInstance(REFCLSID clsid, LPUNKNOWN outer, DWORD context, REFIID iid,
                                  LPVOID* object) {
  Record("CoCreateInstance", IsEqualCLSID(clsid, CLSID_WbemLocator) ? "locator" : "other",
         Text(outer), context, IsEqualIID(iid, IID_IWbemLocator) ? "IWbemLocator" : "other");
  IWbemLocator* locator = nullptr;
  const HRESULT hr = g_locator.Give(kLocator, &locator);
  *object = locator;
  return hr;
}

HRESULT WINAPI FakeSetProxyBlanket(IUnknown* proxy, DWORD authn, DWORD authz, OLECHAR* principal,
                                   DWORD authnLevel, DWORD impLevel,
                                   RPC_AUTH_IDENTITY_HANDLE identity, DWORD capabilities) {
  Record("CoSetProxyBlanket",
         proxy == static_cast<IWbemServices*>(&g_services) ? "services" : "other", authn, authz,
         Text(principal), authnLevel, impLevel, Text(identity), capabilities);
  return Result(kBlanket);
}

// Security: default authentication level (0), impersonate (3); blanket:
// NTLM (10), no authorisation (0), call level (3).
const Strings kCallsInOrder = {
    "CoInitializeSecurity(null,-1,null,null,0,3,null,0,null)",
    "CoCreateInstance(locator,null,1,IWbemLocator)",
    "ConnectServer(root\\wmi,null,null,null,0,null,null)",
    "CoSetProxyBlanket(services,10,0,null,3,3,null,0)",
    "GetObject(KORUCommonInterface,0,null,null)",
    "GetMethod(KoruInterface,0,null)",
    "SpawnInstance(0,in-signature)",
    "Put(InData,0,8209:0..31:00FB000A00000400000000000000000000000000000000000000000000000000,"
    "0,in-params)",
    "ExecMethod(KORUCommonInterface.InstanceName='ACPI\\PNP0C14\\KORUFS_0',KoruInterface,0,"
    "null,in-params,null)",
    "Get(OutData,0,null,null,out-params)",
};

class WmiFakeComTest : public testing::Test {
 protected:
  WmiFakeComTest() : wmi_({&FakeInitializeSecurity, &FakeCreateInstance, &FakeSetProxyBlanket}) {}
  ~WmiFakeComTest() override { g_failAt = kNoFailure; }

  bool Run() {
    g_calls.clear();
    return WMIBiosTPReset(wmi_);
  }

  // Every object handed out, the output property's value included, is back
  // to no references.
  static void ExpectAllReleased() {
    for (const FakeClassObject* object : {&g_class, &g_inSignature, &g_inParams, &g_outParams,
                                          &g_outData}) {
      EXPECT_EQ(object->refs(), 0) << Which(object);
    }
    EXPECT_EQ(g_locator.refs(), 0);
    EXPECT_EQ(g_services.refs(), 0);
  }

 private:
  ComWmiConnector wmi_;
};

TEST_F(WmiFakeComTest, EveryCallGetsItsArgumentsAndEveryObjectIsReleased) {
  EXPECT_TRUE(Run());
  EXPECT_EQ(g_calls, kCallsInOrder);
  ExpectAllReleased();
}

TEST_F(WmiFakeComTest, AFailingCallStillReleasesWhatWasObtained) {
  for (int step = kSecurity; step <= kGet; ++step) {
    SCOPED_TRACE(kCallsInOrder[step]);
    g_failAt = step;
    EXPECT_FALSE(Run());
    ExpectAllReleased();
  }
}

// Wine has WMI but no BIOS class: real COM connects to the namespace and
// finds no class object.
TEST(WmiWineTest, RealComConnectsAndFindsNoBiosClass) {
  ASSERT_GE(CoInitializeEx(nullptr, COINIT_MULTITHREADED), 0);
  {
    ComWmiConnector wmi;
    WmiObject locator = nullptr, services = nullptr, classObject = nullptr;
    ASSERT_EQ(wmi.CreateLocator(&locator), S_OK);
    ASSERT_EQ(wmi.ConnectServer(locator, u"root\\wmi", &services), S_OK);
    EXPECT_EQ(wmi.SetProxyBlanket(services), S_OK);
    WmiString name = wmi.AllocString(u"KORUCommonInterface");
    EXPECT_EQ(wmi.GetClassObject(services, name, &classObject), WBEM_E_NOT_FOUND);
    EXPECT_EQ(classObject, nullptr);
    wmi.FreeString(name);
    wmi.Release(services);
    wmi.Release(locator);
  }
  CoUninitialize();
}

}  // namespace
}  // namespace calder
