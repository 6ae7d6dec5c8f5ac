#include "platform/win32/wmi_com_connector.h"

#include <oleauto.h>
#include <wbemidl.h>

namespace calder {

namespace {

const wchar_t* Wide(const char16_t* text) { return reinterpret_cast<const wchar_t*>(text); }

// Handles hold IUnknown pointers, so Release needs no knowledge of the type.
IUnknown* AsUnknown(WmiObject o) { return static_cast<IUnknown*>(o); }
IWbemLocator* AsLocator(WmiObject o) { return static_cast<IWbemLocator*>(AsUnknown(o)); }
IWbemServices* AsServices(WmiObject o) { return static_cast<IWbemServices*>(AsUnknown(o)); }
IWbemClassObject* AsClass(WmiObject o) { return static_cast<IWbemClassObject*>(AsUnknown(o)); }
WmiObject Handle(IUnknown* object) { return object; }

// A BSTR that lives for one call.
class TempBstr {
 public:
  explicit TempBstr(const char16_t* text) : text_(SysAllocString(Wide(text))) {}
  ~TempBstr() { SysFreeString(text_); }
  TempBstr(const TempBstr&) = delete;
  TempBstr& operator=(const TempBstr&) = delete;
  BSTR get() const { return text_; }

 private:
  BSTR text_;
};

}  // namespace

WmiComHooks RealWmiComHooks() {
  return WmiComHooks{&CoInitializeSecurity, &CoCreateInstance, &CoSetProxyBlanket};
}

ComWmiConnector::ComWmiConnector(const WmiComHooks& hooks) : hooks_(hooks) {
  VariantInit(&variants_[0]);
  VariantInit(&variants_[1]);
}

void ComWmiConnector::InitVariant(WmiVariant variant) { VariantInit(&Slot(variant)); }

void ComWmiConnector::ClearVariant(WmiVariant variant) { VariantClear(&Slot(variant)); }

int32_t ComWmiConnector::InitializeSecurity() {
  return hooks_.initializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT,
                                   RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr);
}

int32_t ComWmiConnector::CreateLocator(WmiObject* locator) {
  IWbemLocator* created = nullptr;
  const HRESULT hr = hooks_.createInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER,
                                           IID_IWbemLocator, reinterpret_cast<LPVOID*>(&created));
  *locator = Handle(created);
  return hr;
}

int32_t ComWmiConnector::ConnectServer(WmiObject locator, const char16_t* wmiNamespace,
                                       WmiObject* services) {
  TempBstr name(wmiNamespace);
  IWbemServices* connected = nullptr;
  const HRESULT hr = AsLocator(locator)->ConnectServer(name.get(), nullptr, nullptr, nullptr, 0,
                                                       nullptr, nullptr, &connected);
  *services = Handle(connected);
  return hr;
}

int32_t ComWmiConnector::SetProxyBlanket(WmiObject services) {
  return hooks_.setProxyBlanket(AsServices(services), RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE,
                                nullptr, RPC_C_AUTHN_LEVEL_CALL, RPC_C_IMP_LEVEL_IMPERSONATE,
                                nullptr, EOAC_NONE);
}

WmiString ComWmiConnector::AllocString(const char16_t* text) {
  return SysAllocString(Wide(text));
}

void ComWmiConnector::FreeString(WmiString text) { SysFreeString(static_cast<BSTR>(text)); }

int32_t ComWmiConnector::GetClassObject(WmiObject services, WmiString className,
                                        WmiObject* classObject) {
  IWbemClassObject* object = nullptr;
  const HRESULT hr =
      AsServices(services)->GetObject(static_cast<BSTR>(className), 0, nullptr, &object, nullptr);
  *classObject = Handle(object);
  return hr;
}

int32_t ComWmiConnector::GetMethodSignature(WmiObject classObject, WmiString method,
                                            WmiObject* inSignature) {
  IWbemClassObject* signature = nullptr;
  const HRESULT hr =
      AsClass(classObject)->GetMethod(static_cast<BSTR>(method), 0, &signature, nullptr);
  *inSignature = Handle(signature);
  return hr;
}

int32_t ComWmiConnector::SpawnInstance(WmiObject classObject, WmiObject* instance) {
  IWbemClassObject* spawned = nullptr;
  const HRESULT hr = AsClass(classObject)->SpawnInstance(0, &spawned);
  *instance = Handle(spawned);
  return hr;
}

void ComWmiConnector::SetBytes(WmiVariant variant, const uint8_t* bytes, size_t count) {
  SAFEARRAYBOUND bound;
  bound.cElements = static_cast<ULONG>(count);
  bound.lLbound = 0;
  SAFEARRAY* array = SafeArrayCreate(VT_UI1, 1, &bound);
  for (LONG i = 0; i < static_cast<LONG>(count); ++i) {
    UCHAR byte = bytes[i];
    SafeArrayPutElement(array, &i, &byte);
  }
  VARIANT& v = Slot(variant);
  V_VT(&v) = VT_ARRAY | VT_UI1;
  SafeArrayCopy(array, &V_ARRAY(&v));
  SafeArrayDestroy(array);
}

int32_t ComWmiConnector::Put(WmiObject object, const char16_t* property, WmiVariant value) {
  TempBstr name(property);
  return AsClass(object)->Put(name.get(), 0, &Slot(value), 0);
}

int32_t ComWmiConnector::ExecMethod(WmiObject services, WmiString objectPath, WmiString method,
                                    WmiObject inParams, WmiObject* outParams) {
  IWbemClassObject* out = nullptr;
  const HRESULT hr =
      AsServices(services)->ExecMethod(static_cast<BSTR>(objectPath), static_cast<BSTR>(method),
                                       0, nullptr, AsClass(inParams), &out, nullptr);
  *outParams = Handle(out);
  return hr;
}

int32_t ComWmiConnector::Get(WmiObject object, const char16_t* property, WmiVariant value) {
  TempBstr name(property);
  return AsClass(object)->Get(name.get(), 0, &Slot(value), nullptr, nullptr);
}

void ComWmiConnector::Release(WmiObject object) {
  AsUnknown(object)->Release();
}

WmiConnector* Win32Wmi() {
  static ComWmiConnector connector;
  return &connector;
}

}  // namespace calder
