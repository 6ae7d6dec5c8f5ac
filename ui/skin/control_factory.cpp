#include "ui/skin/control_factory.h"

#include "ui/skin/control.h"
#include "ui/skin/label.h"
#include "ui/skin/layout.h"
#include "ui/skin/progress.h"
#include "ui/skin/text.h"

namespace calder {

namespace {

template <typename T>
CControlUI* Make() {
  return new T();
}

}  // namespace

CControlFactory::CControlFactory() {
  RegistControl(L"CControlUI", &Make<CControlUI>);
  RegistControl(L"CLabelUI", &Make<CLabelUI>);
  RegistControl(L"CProgressUI", &Make<CProgressUI>);
  RegistControl(L"CVerticalLayoutUI", &Make<CVerticalLayoutUI>);
  RegistControl(L"CHorizontalLayoutUI", &Make<CHorizontalLayoutUI>);
}

CControlFactory* CControlFactory::GetInstance() {
  static CControlFactory factory;
  return &factory;
}

CControlUI* CControlFactory::CreateControl(const std::wstring& class_name) const {
  const auto it = makers_.find(AsciiLower(class_name));
  return it == makers_.end() ? nullptr : it->second();
}

void CControlFactory::RegistControl(const std::wstring& class_name, Create create) {
  if (create != nullptr) makers_[AsciiLower(class_name)] = create;
}

}  // namespace calder
