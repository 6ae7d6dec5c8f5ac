#include "bios/wmi_bios_tp_rst.h"

#include "base/log.h"
#include "platform/environment.h"
#include "platform/wmi_connector.h"

namespace calder {

namespace {

const char16_t kNamespace[] = u"root\\wmi";
const char16_t kClassName[] = u"KORUCommonInterface";
const char16_t kMethodName[] = u"KoruInterface";
const char16_t kObjectPath[] = u"KORUCommonInterface.InstanceName='ACPI\\PNP0C14\\KORUFS_0'";
const char16_t kInData[] = u"InData";
const char16_t kOutData[] = u"OutData";
// COM security was set earlier in the process; not an error here.
constexpr int32_t kRpcETooLate = static_cast<int32_t>(0x80010119u);

// Everything one method call obtains, given back in a fixed order on every
// path, each only if it was obtained.
class WmiCallResources {
 public:
  explicit WmiCallResources(WmiConnector& wmi) : wmi_(wmi) {
    wmi_.InitVariant(WmiVariant::Input);
    wmi_.InitVariant(WmiVariant::Output);
  }
  ~WmiCallResources() {
    wmi_.ClearVariant(WmiVariant::Input);
    wmi_.ClearVariant(WmiVariant::Output);
    for (WmiString text : {className, methodName, objectPath}) {
      if (text != nullptr) wmi_.FreeString(text);
    }
    for (WmiObject object : {classObject, inParams, inSignature, outParams, locator, services}) {
      if (object != nullptr) wmi_.Release(object);
    }
  }
  WmiCallResources(const WmiCallResources&) = delete;
  WmiCallResources& operator=(const WmiCallResources&) = delete;

  WmiString className = nullptr;
  WmiString methodName = nullptr;
  WmiString objectPath = nullptr;
  WmiObject classObject = nullptr;
  WmiObject inParams = nullptr;
  WmiObject inSignature = nullptr;
  WmiObject outParams = nullptr;
  WmiObject locator = nullptr;
  WmiObject services = nullptr;

 private:
  WmiConnector& wmi_;
};

// Kept as the field sees it: a failed step logs its signed code at INFO.
bool Failed(int32_t hr, const char* message) {
  if (hr >= 0) return false;
  LOG(INFO) << message << hr;
  return true;
}

// Keeps an object only when the call that made it succeeded.
template <typename Call>
int32_t Obtain(WmiObject* slot, Call call) {
  WmiObject object = nullptr;
  const int32_t hr = call(&object);
  if (hr >= 0) *slot = object;
  return hr;
}

}  // namespace

bool WMIBiosTPReset() {
  if (Env().wmi == nullptr) {
    LOG(INFO) << "WMI is not available in this build";
    return false;
  }
  return WMIBiosTPReset(*Env().wmi);
}

bool WMIBiosTPReset(WmiConnector& wmi) {
  WmiCallResources held(wmi);

  const int32_t security = wmi.InitializeSecurity();
  if (security == kRpcETooLate) {
    LOG(INFO) << "CoInitializeSecurity already called by another module, skipping.";
  } else if (Failed(security, "Failed to initialize security. Error code = ")) {
    return false;
  }
  if (Failed(Obtain(&held.locator, [&](WmiObject* o) { return wmi.CreateLocator(o); }),
             "Failed to create IWbemLocator object. Err code = ")) {
    return false;  // Kept as the field sees it: "Err code", not "Error code".
  }
  if (Failed(Obtain(&held.services,
                    [&](WmiObject* o) { return wmi.ConnectServer(held.locator, kNamespace, o); }),
             "Could not connect. Error code = ")) {
    return false;
  }
  LOG(INFO) << "Connected to root\\wmi WMI namespace";
  if (Failed(wmi.SetProxyBlanket(held.services), "Could not set proxy blanket. Error code = ")) {
    return false;
  }

  held.methodName = wmi.AllocString(kMethodName);
  held.className = wmi.AllocString(kClassName);
  held.objectPath = wmi.AllocString(kObjectPath);
  if (Failed(Obtain(&held.classObject,
                    [&](WmiObject* o) {
                      return wmi.GetClassObject(held.services, held.className, o);
                    }),
             "Could not get object. Error code = ")) {
    return false;
  }
  if (Failed(Obtain(&held.inSignature,
                    [&](WmiObject* o) {
                      return wmi.GetMethodSignature(held.classObject, held.methodName, o);
                    }),
             // Kept as the field sees it: two blanks after "=" in this text.
             "Could not get method. Error code =  ")) {
    return false;
  }
  if (Failed(Obtain(&held.inParams,
                    [&](WmiObject* o) { return wmi.SpawnInstance(held.inSignature, o); }),
             "Could not spawn instance. Error code = ")) {
    return false;
  }
  wmi.SetBytes(WmiVariant::Input, kTouchpadResetCommand.data(), kTouchpadResetCommand.size());
  if (Failed(wmi.Put(held.inParams, kInData, WmiVariant::Input),
             "Could not put parameter. Error code = ")) {
    return false;
  }
  if (Failed(Obtain(&held.outParams,
                    [&](WmiObject* o) {
                      return wmi.ExecMethod(held.services, held.objectPath, held.methodName,
                                            held.inParams, o);
                    }),
             "Could not execute method. Error code = ")) {
    return false;
  }
  // What the BIOS answers is its own business; reading it is the last step.
  return !Failed(wmi.Get(held.outParams, kOutData, WmiVariant::Output),
                 "Could not get output. Error code = ");
}

}  // namespace calder
