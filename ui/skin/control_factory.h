#pragma once

#include <map>
#include <string>

namespace calder {

class CControlUI;

// The built-in control maker: "C%sUI" class names looked up without regard
// to case, so the tags "control" and "Label" both find their classes.
class CControlFactory {
 public:
  using Create = CControlUI* (*)();

  static CControlFactory* GetInstance();

  CControlUI* CreateControl(const std::wstring& class_name) const;
  void RegistControl(const std::wstring& class_name, Create create);

 private:
  CControlFactory();
  std::map<std::wstring, Create> makers_;  // keys lower-cased
};

}  // namespace calder
