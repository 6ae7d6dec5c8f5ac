#pragma once

#include <windows.h>

// The progress window's messages besides WM_CLOSE: wParam is the percent,
// or the countdown's seconds left; lParam 0.
constexpr UINT WM_UPDATE_PROGRESS = WM_USER + 100;
constexpr UINT WM_COUNTDOWN_TICK = WM_USER + 101;
