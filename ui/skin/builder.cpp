#include "ui/skin/builder.h"

#include <pugixml.hpp>

#include <cstring>
#include <vector>

#include "ui/skin/control.h"
#include "ui/skin/control_factory.h"
#include "ui/skin/layout.h"
#include "ui/skin/paint_manager.h"
#include "ui/skin/text.h"

namespace calder {

namespace {

std::wstring Wide(const char* utf8) { return Utf8ToWide(utf8, std::strlen(utf8)); }

// The element's attribute as wide text, or empty.
std::wstring Attribute(const pugi::xml_node& node, const char* name) {
  return Wide(node.attribute(name).value());
}

void AddFont(const pugi::xml_node& node, CPaintManagerUI* manager) {
  UiFont font;
  int id = -1;
  bool is_default = false;
  for (const pugi::xml_attribute& a : node.attributes()) {
    const std::wstring name = Wide(a.name());
    const std::wstring value = Wide(a.value());
    if (EqualsNoCase(name.c_str(), L"id")) id = ParseInt(value.c_str());
    else if (EqualsNoCase(name.c_str(), L"name")) font.face = value;
    else if (EqualsNoCase(name.c_str(), L"size")) font.size = ParseInt(value.c_str());
    else if (EqualsNoCase(name.c_str(), L"bold")) font.bold = ParseBool(value.c_str());
    else if (EqualsNoCase(name.c_str(), L"underline")) font.underline = ParseBool(value.c_str());
    else if (EqualsNoCase(name.c_str(), L"italic")) font.italic = ParseBool(value.c_str());
    else if (EqualsNoCase(name.c_str(), L"default")) is_default = ParseBool(value.c_str());
  }
  manager->AddFont(id, font, is_default);
}

void ApplyWindowAttributes(const pugi::xml_node& window, CPaintManagerUI* manager) {
  const std::wstring size = Attribute(window, "size");
  if (size.empty()) return;
  const wchar_t* rest = nullptr;
  const int cx = ParseInt(size.c_str(), &rest);
  const int cy = (rest != nullptr && *rest == L',') ? ParseInt(rest + 1) : 0;
  manager->SetInitSize(cx, cy);
}

class TreeBuilder {
 public:
  TreeBuilder(IDialogBuilderCallback* callback, CPaintManagerUI* manager)
      : callback_(callback), manager_(manager) {}

  CControlUI* Make(const std::wstring& tag) const {
    if (CControlUI* c = CControlFactory::GetInstance()->CreateControl(L"C" + tag + L"UI")) return c;
    for (UiPluginCreate plugin : CPaintManagerUI::GetPlugins()) {
      if (CControlUI* c = plugin(tag.c_str())) return c;
    }
    return callback_ != nullptr ? callback_->CreateControl(tag.c_str()) : nullptr;
  }

  // Builds one element under parent (null for the root); false when the
  // document nests deeper than the builder goes.
  bool Build(const pugi::xml_node& node, CContainerUI* parent, int depth, CControlUI** made) {
    *made = nullptr;
    if (depth > CDialogBuilder::kMaxDepth) return false;
    CControlUI* control = Make(Wide(node.name()));
    if (control == nullptr) return true;
    control->SetManager(manager_, parent);
    for (const pugi::xml_attribute& a : node.attributes()) {
      control->SetAttribute(Wide(a.name()).c_str(), Wide(a.value()).c_str());
    }
    if (parent != nullptr) parent->Add(control);
    // Children only under containers; a leaf's children have no place.
    auto* container = static_cast<CContainerUI*>(control->GetInterface(L"IContainer"));
    if (container != nullptr) {
      for (const pugi::xml_node& child : node.children()) {
        if (child.type() != pugi::node_element) continue;
        CControlUI* ignored = nullptr;
        if (!Build(child, container, depth + 1, &ignored)) {
          if (parent == nullptr) delete control;
          return false;
        }
      }
    }
    *made = control;
    return true;
  }

 private:
  IDialogBuilderCallback* callback_;
  CPaintManagerUI* manager_;
};

}  // namespace

CControlUI* CDialogBuilder::Create(const std::wstring& skin_file, const std::wstring& type,
                                   IDialogBuilderCallback* callback, CPaintManagerUI* manager) {
  if (!type.empty()) {
    error_ = "skin type not supported";
    return nullptr;
  }
  if (!CPaintManagerUI::IsResourceZipHeld() || !CPaintManagerUI::GetResourceZip().IsOpen()) {
    error_ = "no skin zip";
    return nullptr;
  }
  std::vector<uint8_t> xml;
  const ZipError e = CPaintManagerUI::GetResourceZip().Extract(WideToUtf8(skin_file), &xml);
  if (e != ZipError::kNone) {
    error_ = std::string(WideToUtf8(skin_file)) + ": " + ZipErrorText(e);
    return nullptr;
  }
  return CreateFromXml(reinterpret_cast<const char*>(xml.data()), xml.size(), callback, manager);
}

CControlUI* CDialogBuilder::CreateFromXml(const char* xml, size_t size, IDialogBuilderCallback* callback,
                                          CPaintManagerUI* manager) {
  error_.clear();
  if (manager == nullptr) {
    error_ = "no paint manager";
    return nullptr;
  }
  pugi::xml_document doc;
  const pugi::xml_parse_result parsed =
      doc.load_buffer(xml, size, pugi::parse_default, pugi::encoding_utf8);
  if (!parsed) {
    error_ = std::string("bad XML: ") + parsed.description() + " at offset " +
             std::to_string(parsed.offset);
    return nullptr;
  }
  const pugi::xml_node window = doc.document_element();
  if (std::strcmp(window.name(), "Window") != 0) {
    error_ = "root element is not Window";
    return nullptr;
  }
  ApplyWindowAttributes(window, manager);
  TreeBuilder tree(callback, manager);
  CControlUI* root = nullptr;
  for (const pugi::xml_node& node : window.children()) {
    if (node.type() != pugi::node_element) continue;
    if (std::strcmp(node.name(), "Font") == 0) {
      AddFont(node, manager);
    } else if (root == nullptr) {  // the first control made is the root; later ones are not read
      if (!tree.Build(node, nullptr, 1, &root)) {
        error_ = "skin nests deeper than " + std::to_string(kMaxDepth) + " levels";
        return nullptr;
      }
    }
  }
  if (root != nullptr) return root;
  error_ = "skin has no control";
  return nullptr;
}

}  // namespace calder
