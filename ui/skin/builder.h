#pragma once

#include <cstddef>
#include <string>

#include "ui/skin/ui_events.h"

namespace calder {

class CControlUI;
class CPaintManagerUI;

// Builds a control tree from a skin document: the `Window` root with its
// "size", `Font` entries, and one element per control, made by the built-in
// factory, then the plug-ins, then the window's CreateControl hook; elements
// nobody makes are skipped with their children.
class CDialogBuilder {
 public:
  static constexpr int kMaxDepth = 128;

  // Reads skin_file from the process-wide resource zip. A non-empty type
  // (skins held in other resource kinds) is not supported here.
  CControlUI* Create(const std::wstring& skin_file, const std::wstring& type,
                     IDialogBuilderCallback* callback, CPaintManagerUI* manager);
  // Builds from UTF-8 XML in memory.
  CControlUI* CreateFromXml(const char* xml, size_t size, IDialogBuilderCallback* callback,
                            CPaintManagerUI* manager);

  // Why the last build gave null.
  const std::string& GetLastError() const { return error_; }

 private:
  std::string error_;
};

}  // namespace calder
