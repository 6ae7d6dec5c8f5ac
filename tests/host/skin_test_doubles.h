#pragma once

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "ui/skin/builder.h"
#include "ui/skin/canvas.h"
#include "ui/skin/paint_window.h"
#include "ui/skin/progress.h"
#include "ui/skin/text.h"

namespace calder::test {

inline std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline std::string RectText(const UiRect& r) {
  return std::to_string(r.left) + "," + std::to_string(r.top) + "," + std::to_string(r.right) + "," +
         std::to_string(r.bottom);
}

inline std::string ColorText(uint32_t argb) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "#%08X", static_cast<unsigned>(argb));
  return buf;
}

// Records what a paint manager asks of its window.
class RecordingWindow : public PaintWindow {
 public:
  void* NativeHandle() const override { return nullptr; }
  void Invalidate(const UiRect& rect) override { invalidated.push_back(rect); }
  bool StartTimer(unsigned native_id, unsigned elapse_ms) override {
    started.push_back({native_id, elapse_ms});
    return timers_work;
  }
  void StopTimer(unsigned native_id) override { stopped.push_back(native_id); }
  UiRect GetWindowRect() const override { return rect; }
  bool IsMaximized() const override { return maximized; }
  void MoveWindow(const UiRect& to) override {
    moves.push_back(to);
    rect = to;
  }
  void PostToWindow(unsigned msg, uintptr_t, intptr_t) override { posts.push_back(msg); }
  void ResetDpiAssets() override { ++resets; }

  UiRect rect{0, 0, 1920, 1200};
  bool maximized = false;
  bool timers_work = true;
  std::vector<UiRect> invalidated;
  std::vector<std::pair<unsigned, unsigned>> started;
  std::vector<unsigned> stopped;
  std::vector<UiRect> moves;
  std::vector<unsigned> posts;
  int resets = 0;
};

// Records paint calls as text lines.
class RecordingCanvas : public Canvas {
 public:
  void FillRect(const UiRect& rect, uint32_t argb) override {
    calls.push_back("fill " + RectText(rect) + " " + ColorText(argb));
  }
  void DrawBorder(const UiRect& rect, int size, uint32_t argb) override {
    calls.push_back("border " + RectText(rect) + " " + std::to_string(size) + " " + ColorText(argb));
  }
  void DrawString(const UiRect& rect, const std::wstring& text, int font, uint32_t argb,
                  unsigned style) override {
    calls.push_back("text " + RectText(rect) + " " + WideToUtf8(text) + " font " + std::to_string(font) +
                    " " + ColorText(argb) + " style " + std::to_string(style));
  }
  void PushClip(const UiRect& rect) override { calls.push_back("clip " + RectText(rect)); }
  void PopClip() override { calls.push_back("unclip"); }
  void* NativeContext() override { return nullptr; }

  std::vector<std::string> calls;
};

// The window's hook as the progress window has it: exact, case-sensitive tags.
class CustomTags : public IDialogBuilderCallback {
 public:
  CControlUI* CreateControl(const wchar_t* tag) override {
    asked.push_back(WideToUtf8(tag));
    const std::wstring t = tag;
    return t == L"FirmProgressUI" || t == L"LottieUI" || t == L"CircleProgress" ? new CProgressUI() : nullptr;
  }
  std::vector<std::string> asked;
};

}  // namespace calder::test
