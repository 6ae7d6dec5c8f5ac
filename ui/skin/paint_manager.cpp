#include "ui/skin/paint_manager.h"

#include <algorithm>

#include "ui/skin/canvas.h"
#include "ui/skin/control.h"
#include "ui/skin/paint_window.h"

namespace calder {

void* CPaintManagerUI::instance_ = nullptr;
int CPaintManagerUI::resource_type_ = UILIB_FILE;
const void* CPaintManagerUI::zip_data_ = nullptr;
ZipReader CPaintManagerUI::zip_;

namespace {

std::wstring& ResourcePath() {
  static std::wstring path;
  return path;
}

std::vector<CPaintManagerUI*>& Managers() {
  static std::vector<CPaintManagerUI*> managers;
  return managers;
}

std::vector<UiPluginCreate>& Plugins() {
  static std::vector<UiPluginCreate> plugins;
  return plugins;
}

template <typename T>
bool AddOnce(std::vector<T*>* list, T* item) {
  if (item == nullptr || std::find(list->begin(), list->end(), item) != list->end()) return false;
  list->push_back(item);
  return true;
}

template <typename T>
bool RemoveItem(std::vector<T*>* list, T* item) {
  const auto it = std::find(list->begin(), list->end(), item);
  if (it == list->end()) return false;
  list->erase(it);
  return true;
}

}  // namespace

CPaintManagerUI::CPaintManagerUI() = default;

CPaintManagerUI::~CPaintManagerUI() {
  RemoveItem(&Managers(), this);
  for (const Timer& t : timers_) {
    if (window_ != nullptr) window_->StopTimer(t.native_id);
  }
  timers_.clear();
  window_ = nullptr;  // the tree's destructors must not reach the window
  CControlUI* root = root_;
  root_ = nullptr;
  delete root;
}

void CPaintManagerUI::Init(PaintWindow* window) {
  window_ = window;
  AddOnce(&Managers(), this);
}

bool CPaintManagerUI::AttachDialog(CControlUI* root) {
  if (root == nullptr) return false;
  if (root_ != nullptr && root_ != root) delete root_;
  root_ = root;
  root_->SetManager(this, nullptr);
  NeedUpdate();
  return true;
}

CControlUI* CPaintManagerUI::FindControl(const std::wstring& name) const {
  return root_ != nullptr ? root_->FindControl(name) : nullptr;
}

void CPaintManagerUI::ReapObjects(CControlUI* control) {
  timers_.erase(std::remove_if(timers_.begin(), timers_.end(),
                               [this, control](const Timer& t) {
                                 if (t.control != control) return false;
                                 if (window_ != nullptr) window_->StopTimer(t.native_id);
                                 return true;
                               }),
                timers_.end());
}

void CPaintManagerUI::DropRegistrations() { timers_.clear(); }

void CPaintManagerUI::AddFont(int id, const UiFont& font, bool is_default) {
  fonts_[id] = font;
  if (is_default) default_font_ = id;
  if (window_ != nullptr) window_->ResetDpiAssets();
}

const UiFont* CPaintManagerUI::GetFont(int id) const {
  auto it = fonts_.find(id);
  if (it == fonts_.end()) it = fonts_.find(default_font_);
  return it == fonts_.end() ? nullptr : &it->second;
}

int CPaintManagerUI::GetFontHeight(int id) const {
  const UiFont* font = GetFont(id);
  return font != nullptr ? dpi_.Scale(font->size) : 0;
}

bool CPaintManagerUI::SetTimer(CControlUI* control, unsigned id, unsigned elapse_ms) {
  if (control == nullptr || window_ == nullptr) return false;
  for (const Timer& t : timers_) {
    if (t.control == control && t.id == id) return window_->StartTimer(t.native_id, elapse_ms);
  }
  const unsigned native_id = next_native_timer_++;
  if (!window_->StartTimer(native_id, elapse_ms)) return false;
  timers_.push_back(Timer{control, id, native_id});
  return true;
}

bool CPaintManagerUI::KillTimer(CControlUI* control, unsigned id) {
  for (auto it = timers_.begin(); it != timers_.end(); ++it) {
    if (it->control == control && it->id == id) {
      if (window_ != nullptr) window_->StopTimer(it->native_id);
      timers_.erase(it);
      return true;
    }
  }
  return false;
}

bool CPaintManagerUI::OnNativeTimer(unsigned native_id, uint64_t timestamp) {
  for (const Timer& t : timers_) {
    if (t.native_id != native_id) continue;
    TEventUI event;
    event.Type = UIEVENT_TIMER;
    event.pSender = t.control;
    event.dwTimestamp = timestamp;
    event.wParam = t.id;
    t.control->Event(event);  // may kill timers: do not touch the list after
    return true;
  }
  return false;
}

void CPaintManagerUI::SetDPI(int dpi, const UiRect& rect) {
  const int old_scale = dpi_.GetScale();
  dpi_.SetScale(dpi < 0 ? 0u : static_cast<unsigned>(dpi));
  const int new_scale = dpi_.GetScale();
  if (window_ != nullptr) {
    window_->ResetDpiAssets();
    if (!window_->IsMaximized()) {
      UiRect target = rect;
      if (target.IsEmpty()) {
        const UiRect now = window_->GetWindowRect();
        target = now;
        if (old_scale > 0) {
          target.right = now.left + MulDivRound(now.Width(), new_scale, old_scale);
          target.bottom = now.top + MulDivRound(now.Height(), new_scale, old_scale);
        }
      }
      window_->MoveWindow(target);
    }
  }
  NeedUpdate();
  if (window_ != nullptr) window_->PostToWindow(kUiMsgSetDpi, 0, 0);
}

void CPaintManagerUI::NeedUpdate() {
  update_needed_ = true;
  if (window_ != nullptr && root_ != nullptr) window_->Invalidate(root_->GetPos());
}

void CPaintManagerUI::UpdateLayout(const UiRect& client) {
  update_needed_ = false;
  if (root_ != nullptr) root_->SetPos(client);
}

void CPaintManagerUI::Invalidate(const UiRect& rect) {
  if (window_ != nullptr) window_->Invalidate(rect);
}

void CPaintManagerUI::Paint(Canvas& canvas, const UiRect& client, const UiRect& dirty) {
  if (root_ == nullptr) return;
  if (update_needed_ || root_->GetPos() != client) UpdateLayout(client);
  root_->DoPaint(canvas, dirty);
}

bool CPaintManagerUI::AddPreMessageFilter(IMessageFilterUI* filter) { return AddOnce(&pre_filters_, filter); }
bool CPaintManagerUI::RemovePreMessageFilter(IMessageFilterUI* filter) { return RemoveItem(&pre_filters_, filter); }
bool CPaintManagerUI::AddNotifier(INotifyUI* notifier) { return AddOnce(&notifiers_, notifier); }
bool CPaintManagerUI::RemoveNotifier(INotifyUI* notifier) { return RemoveItem(&notifiers_, notifier); }

bool CPaintManagerUI::PreMessageHandler(unsigned msg, uintptr_t wparam, intptr_t lparam, intptr_t& result) {
  const std::vector<IMessageFilterUI*> filters = pre_filters_;  // a filter may unregister
  for (IMessageFilterUI* filter : filters) {
    bool handled = false;
    const intptr_t r = filter->MessageHandler(msg, wparam, lparam, handled);
    if (handled) {
      result = r;
      return true;
    }
  }
  return false;
}

const std::vector<CPaintManagerUI*>& CPaintManagerUI::GetPaintManagers() { return Managers(); }

void CPaintManagerUI::SetResourcePath(const std::wstring& path) {
  ResourcePath() = path;
  if (!path.empty() && path.back() != L'\\' && path.back() != L'/') ResourcePath() += L'\\';
}

const std::wstring& CPaintManagerUI::GetResourcePath() { return ResourcePath(); }

ZipError CPaintManagerUI::SetResourceZip(const void* data, size_t size) {
  zip_.Close();
  zip_data_ = data;
  if (data == nullptr) return ZipError::kNoArchive;
  return zip_.Open(data, size);
}

void CPaintManagerUI::AddPlugin(UiPluginCreate create) {
  if (create != nullptr) Plugins().push_back(create);
}

void CPaintManagerUI::ClearPlugins() { Plugins().clear(); }

const std::vector<UiPluginCreate>& CPaintManagerUI::GetPlugins() { return Plugins(); }

}  // namespace calder
