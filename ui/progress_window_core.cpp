#include "ui/progress_window_core.h"

#include <algorithm>

namespace calder {

std::wstring FormatProgressText(int percent) { return std::to_wstring(percent) + L"%"; }

std::wstring FormatCountdownText(int seconds) {
  return std::to_wstring(seconds) + L"s 后将自动重启";
}

ProgressWindowCore::ProgressWindowCore(ProgressView& view, CountdownPlatform& platform)
    : view_(view), platform_(platform) {}

ProgressWindowCore::~ProgressWindowCore() { StopCountdown(); }

void ProgressWindowCore::SetProgress(int percent) {
  int min = 0;
  int max = 0;
  if (view_.GetBarRange(&min, &max)) view_.SetBarValue(std::max(min, std::min(max, percent)));
  view_.SetProgressText(FormatProgressText(percent));
  if (percent == 100) {
    view_.ShowCountdownRow();
    StartCountdown();
  }
}

void ProgressWindowCore::StartCountdown() {
  if (m_bCountdownRunning.exchange(true)) return;
  auto context = std::make_unique<CountdownContext>();
  context->window = this;
  context->deadline = platform_.NowMs() + kCountdownMs;
  context->handle = view_.NativeHandle();
  m_bCountdownCancel = false;
  UpdateCountdownText(static_cast<int>(kCountdownMs / 1000));
  // Assigning over a joinable thread ends the process, as it should: only
  // StopCountdown may leave the slot empty again.
  m_countdownThread = std::thread(&ProgressWindowCore::CountdownProc, this, std::move(context));
}

void ProgressWindowCore::CountdownProc(std::unique_ptr<CountdownContext> context) {
  uint64_t last = UINT64_MAX;
  while (!m_bCountdownCancel) {
    const uint64_t now = platform_.NowMs();
    const uint64_t secs = now < context->deadline ? (context->deadline - now + 999) / 1000 : 0;
    if (secs != last) {
      last = secs;
      if (platform_.IsWindow(context->handle)) {
        platform_.PostTick(context->handle, static_cast<int>(secs));
      }
    }
    if (secs == 0) break;
    platform_.Sleep(kCountdownPollMs);
  }
  if (m_bCountdownCancel) return;
  platform_.RunRestart(kRestartCommand);
}

void ProgressWindowCore::StopCountdown() {
  if (m_bCountdownRunning) m_bCountdownCancel = true;
  if (m_countdownThread.joinable()) {
    m_countdownThread.join();
    m_countdownThread = std::thread();
  }
  m_bCountdownRunning = false;
}

void ProgressWindowCore::UpdateCountdownText(int seconds) {
  view_.SetCountdownText(FormatCountdownText(seconds));
}

}  // namespace calder
