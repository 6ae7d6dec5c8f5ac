#pragma once

#include <windows.h>

// Shared by the UI thread and the worker; see WinMain for the write order.
extern HWND g_hProgressWnd;
extern bool g_bProgressWindowActive;
extern bool g_bGestureHelperNotified;

constexpr UINT WM_UPDATE_PROGRESS = WM_USER + 100;
constexpr UINT WM_COUNTDOWN_TICK = WM_USER + 101;
