#include "driver/power_request_guard.h"

namespace calder {

PowerRequestGuard::PowerRequestGuard(PowerRequests* power) : power_(power) {
  if (power_ == nullptr) return;
  handle_ = power_->Create(L"Firmware screen update in progress");
  if (handle_ == kInvalidPowerRequest) return;
  power_->Set(handle_, PowerRequestType::DisplayRequired);
  power_->Set(handle_, PowerRequestType::SystemRequired);
}

PowerRequestGuard::~PowerRequestGuard() {
  if (power_ == nullptr || handle_ == kInvalidPowerRequest) return;
  power_->Clear(handle_, PowerRequestType::DisplayRequired);
  power_->Clear(handle_, PowerRequestType::SystemRequired);
  power_->Close(handle_);
}

}  // namespace calder
