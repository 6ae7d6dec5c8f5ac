#pragma once

#include <cstddef>
#include <cstdint>

namespace calder {

using WmiObject = void*;  // a COM object: locator, services or class object
using WmiString = void*;  // a BSTR
enum class WmiVariant { Input, Output };

// The COM and WMI calls of one method call, each a plain translation; the
// caller decides order, results and releases. Results are HRESULTs.
class WmiConnector {
 public:
  virtual ~WmiConnector() = default;
  virtual void InitVariant(WmiVariant variant) = 0;
  virtual void ClearVariant(WmiVariant variant) = 0;
  // CoInitializeSecurity: default authentication, impersonate, no capabilities.
  virtual int32_t InitializeSecurity() = 0;
  // CoCreateInstance of the WMI locator, in-process.
  virtual int32_t CreateLocator(WmiObject* locator) = 0;
  virtual int32_t ConnectServer(WmiObject locator, const char16_t* wmiNamespace,
                                WmiObject* services) = 0;
  // CoSetProxyBlanket: NTLM, call-level authentication, impersonate.
  virtual int32_t SetProxyBlanket(WmiObject services) = 0;
  virtual WmiString AllocString(const char16_t* text) = 0;
  virtual void FreeString(WmiString text) = 0;
  virtual int32_t GetClassObject(WmiObject services, WmiString className,
                                 WmiObject* classObject) = 0;
  virtual int32_t GetMethodSignature(WmiObject classObject, WmiString method,
                                     WmiObject* inSignature) = 0;
  virtual int32_t SpawnInstance(WmiObject classObject, WmiObject* instance) = 0;
  // Makes the variant a VT_ARRAY | VT_UI1 copy of the bytes.
  virtual void SetBytes(WmiVariant variant, const uint8_t* bytes, size_t count) = 0;
  virtual int32_t Put(WmiObject object, const char16_t* property, WmiVariant value) = 0;
  virtual int32_t ExecMethod(WmiObject services, WmiString objectPath, WmiString method,
                             WmiObject inParams, WmiObject* outParams) = 0;
  virtual int32_t Get(WmiObject object, const char16_t* property, WmiVariant value) = 0;
  virtual void Release(WmiObject object) = 0;
};

}  // namespace calder
