#pragma once

namespace calder {

// Values of PROCESS_DPI_AWARENESS.
enum UiDpiAwareness {
  kDpiUnaware = 0,
  kSystemDpiAware = 1,
  kPerMonitorDpiAware = 2,
};

// The DPI object of a paint manager: a scale in percent and an awareness mode.
class CDPI {
 public:
  UiDpiAwareness GetDPIAwareness() const { return awareness_; }
  void SetAwareness(UiDpiAwareness awareness) { awareness_ = awareness; }

  // Stores round(dpi * 100 / 96).
  void SetScale(unsigned dpi);
  int GetScale() const;

  // The system scale answered in the system-aware mode.
  void SetSystemScale(int percent) { system_scale_ = percent; }

  // x * scale / 100 rounded; unscaled when DPI-unaware.
  int Scale(int x) const;

 private:
  UiDpiAwareness awareness_ = kPerMonitorDpiAware;
  int scale_ = 100;
  int system_scale_ = 100;
};

}  // namespace calder
