// Any document handed to the skin builder: build it with the window's custom
// tags, lay it out and paint it at two scales, then tear it down.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "tests/host/skin_test_doubles.h"
#include "ui/skin/skin.h"

namespace {

// Paints nowhere: only the tree walk is under test.
class NullCanvas : public calder::Canvas {
 public:
  void FillRect(const calder::UiRect&, uint32_t) override {}
  void DrawBorder(const calder::UiRect&, int, uint32_t) override {}
  void DrawString(const calder::UiRect&, const std::wstring&, int, uint32_t, unsigned) override {}
  void PushClip(const calder::UiRect&) override { ++depth; }
  void PopClip() override { --depth; }
  void* NativeContext() override { return nullptr; }
  int depth = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace calder;
  test::RecordingWindow window;
  CPaintManagerUI manager;
  manager.Init(&window);
  test::CustomTags tags;
  CDialogBuilder builder;
  CControlUI* root = builder.CreateFromXml(reinterpret_cast<const char*>(data), size, &tags, &manager);
  // A document either builds or says why not.
  if ((root == nullptr) == builder.GetLastError().empty()) std::abort();
  if (root == nullptr) return 0;
  manager.AttachDialog(root);
  NullCanvas canvas;
  manager.Paint(canvas, UiRect{0, 0, 1366, 768}, UiRect{0, 0, 1366, 768});
  manager.SetDPI(144, UiRect{});
  manager.Paint(canvas, UiRect{0, 0, 1920, 1200}, UiRect{0, 0, 1920, 1200});
  if (canvas.depth != 0) std::abort();  // every clip pushed is popped
  if (CControlUI* row = manager.FindControl(L"daojisText")) row->SetVisible(!row->IsVisible());
  if (CControlUI* text = manager.FindControl(L"progressText")) text->SetText(L"50%");
  manager.UpdateLayout(UiRect{0, 0, 800, 600});
  return 0;
}
