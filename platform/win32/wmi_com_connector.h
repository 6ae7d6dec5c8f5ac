#pragma once

#include <windows.h>
#include <objbase.h>

#include "platform/wmi_connector.h"

namespace calder {

// The three process-level COM calls, replaceable so tests can hand out fake
// WMI objects and fail security or blanket set-up on demand.
struct WmiComHooks {
  HRESULT(WINAPI* initializeSecurity)(PSECURITY_DESCRIPTOR, LONG, SOLE_AUTHENTICATION_SERVICE*,
                                      void*, DWORD, DWORD, void*, DWORD, void*);
  HRESULT(WINAPI* createInstance)(REFCLSID, LPUNKNOWN, DWORD, REFIID, LPVOID*);
  HRESULT(WINAPI* setProxyBlanket)(IUnknown*, DWORD, DWORD, OLECHAR*, DWORD, DWORD,
                                   RPC_AUTH_IDENTITY_HANDLE, DWORD);
};

WmiComHooks RealWmiComHooks();

// WMI through real COM objects (IWbemLocator, IWbemServices,
// IWbemClassObject); every method is one COM call with fixed arguments.
class ComWmiConnector : public WmiConnector {
 public:
  explicit ComWmiConnector(const WmiComHooks& hooks = RealWmiComHooks());

  void InitVariant(WmiVariant variant) override;
  void ClearVariant(WmiVariant variant) override;
  int32_t InitializeSecurity() override;
  int32_t CreateLocator(WmiObject* locator) override;
  int32_t ConnectServer(WmiObject locator, const char16_t* wmiNamespace,
                        WmiObject* services) override;
  int32_t SetProxyBlanket(WmiObject services) override;
  WmiString AllocString(const char16_t* text) override;
  void FreeString(WmiString text) override;
  int32_t GetClassObject(WmiObject services, WmiString className,
                         WmiObject* classObject) override;
  int32_t GetMethodSignature(WmiObject classObject, WmiString method,
                             WmiObject* inSignature) override;
  int32_t SpawnInstance(WmiObject classObject, WmiObject* instance) override;
  void SetBytes(WmiVariant variant, const uint8_t* bytes, size_t count) override;
  int32_t Put(WmiObject object, const char16_t* property, WmiVariant value) override;
  int32_t ExecMethod(WmiObject services, WmiString objectPath, WmiString method,
                     WmiObject inParams, WmiObject* outParams) override;
  int32_t Get(WmiObject object, const char16_t* property, WmiVariant value) override;
  void Release(WmiObject object) override;

 private:
  VARIANT& Slot(WmiVariant variant) { return variants_[variant == WmiVariant::Input ? 0 : 1]; }

  WmiComHooks hooks_;
  VARIANT variants_[2];
};

// The process's connector on real COM.
WmiConnector* Win32Wmi();

}  // namespace calder
