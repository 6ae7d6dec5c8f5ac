#pragma once

#include <cstdint>

namespace calder {

enum class PowerRequestType { DisplayRequired = 0, SystemRequired = 1 };

// Opaque kernel handle; kInvalidPowerRequest mirrors INVALID_HANDLE_VALUE.
using PowerRequestHandle = void*;
inline PowerRequestHandle const kInvalidPowerRequest =
    reinterpret_cast<PowerRequestHandle>(static_cast<intptr_t>(-1));

class PowerRequests {
 public:
  virtual ~PowerRequests() = default;
  // Simple-string reason context, version 0.
  virtual PowerRequestHandle Create(const wchar_t* reason) = 0;
  virtual void Set(PowerRequestHandle handle, PowerRequestType type) = 0;
  virtual void Clear(PowerRequestHandle handle, PowerRequestType type) = 0;
  virtual void Close(PowerRequestHandle handle) = 0;
};

}  // namespace calder
