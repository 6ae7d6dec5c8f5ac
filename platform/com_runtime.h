#pragma once

namespace calder {

class ComRuntime {
 public:
  virtual ~ComRuntime() = default;
  // CoInitializeEx(null, COINIT_MULTITHREADED); returns the HRESULT.
  virtual long InitializeMultithreaded() = 0;
  virtual void Uninitialize() = 0;
};

}  // namespace calder
