#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "ui/countdown_platform.h"

namespace calder {

// The controls of the progress window as its logic sees them. Each call is a
// no-op when the skin lacks the control.
class ProgressView {
 public:
  virtual ~ProgressView() = default;
  // False when there is no bar.
  virtual bool GetBarRange(int* min, int* max) = 0;
  // Writes the value straight into the bar and repaints it.
  virtual void SetBarValue(int value) = 0;
  virtual void SetProgressText(const std::wstring& text) = 0;
  // Hides the upgrading row and shows the countdown row.
  virtual void ShowCountdownRow() = 0;
  virtual void SetCountdownText(const std::wstring& text) = 0;
  virtual void* NativeHandle() = 0;
};

constexpr uint64_t kCountdownMs = 12000;
constexpr uint32_t kCountdownPollMs = 200;
constexpr char kRestartCommand[] = "shutdown /r /t 0 /d p:0:0";

std::wstring FormatProgressText(int percent);
std::wstring FormatCountdownText(int seconds);

struct CountdownContext {
  class ProgressWindowCore* window = nullptr;
  void* handle = nullptr;
  uint64_t deadline = 0;
};

// SetProgress and the restart countdown of the progress window, kept apart
// from the window so they run natively on virtual time. Every operation but
// CountdownProc runs on the UI thread.
class ProgressWindowCore {
 public:
  ProgressWindowCore(ProgressView& view, CountdownPlatform& platform);
  // Cancels and joins a running countdown; a thread still joinable after
  // that ends the process, as a destroyed joinable thread does.
  virtual ~ProgressWindowCore();
  ProgressWindowCore(const ProgressWindowCore&) = delete;
  ProgressWindowCore& operator=(const ProgressWindowCore&) = delete;

  // Clamps for the bar only, and exactly 100 swaps the upgrading row for the
  // countdown row and starts the countdown.
  // Kept as the field sees it: the label shows the value as given, unclamped.
  void SetProgress(int percent);
  void StartCountdown();
  void StopCountdown();
  void UpdateCountdownText(int seconds);

  bool CountdownRunning() const { return m_bCountdownRunning; }
  bool CountdownCancelRequested() const { return m_bCountdownCancel; }

 private:
  void CountdownProc(std::unique_ptr<CountdownContext> context);

  ProgressView& view_;
  CountdownPlatform& platform_;
  std::atomic<bool> m_bCountdownRunning{false};
  std::atomic<bool> m_bCountdownCancel{false};
  std::thread m_countdownThread;
};

}  // namespace calder
