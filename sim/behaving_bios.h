#pragma once

#include <cstdint>

#include "platform/wmi_connector.h"

namespace calder::sim {

// A machine whose BIOS takes the touchpad reset: every COM and WMI step
// succeeds and hands out an object.
class BehavingBios : public WmiConnector {
 public:
  void InitVariant(WmiVariant) override {}
  void ClearVariant(WmiVariant) override {}
  int32_t InitializeSecurity() override { return 0; }
  int32_t CreateLocator(WmiObject* locator) override { return Hand(locator); }
  int32_t ConnectServer(WmiObject, const char16_t*, WmiObject* services) override {
    return Hand(services);
  }
  int32_t SetProxyBlanket(WmiObject) override { return 0; }
  WmiString AllocString(const char16_t*) override { return this; }
  void FreeString(WmiString) override {}
  int32_t GetClassObject(WmiObject, WmiString, WmiObject* object) override { return Hand(object); }
  int32_t GetMethodSignature(WmiObject, WmiString, WmiObject* signature) override {
    return Hand(signature);
  }
  int32_t SpawnInstance(WmiObject, WmiObject* instance) override { return Hand(instance); }
  void SetBytes(WmiVariant, const uint8_t*, size_t) override {}
  int32_t Put(WmiObject, const char16_t*, WmiVariant) override { return 0; }
  int32_t ExecMethod(WmiObject, WmiString, WmiString, WmiObject, WmiObject* out) override {
    return Hand(out);
  }
  int32_t Get(WmiObject, const char16_t*, WmiVariant) override { return 0; }
  void Release(WmiObject) override {}

 private:
  int32_t Hand(WmiObject* object) {
    *object = this;
    return 0;
  }
};

}  // namespace calder::sim
