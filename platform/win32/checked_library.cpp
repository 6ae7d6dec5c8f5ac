#include "platform/win32/checked_library.h"

#include <algorithm>

#include "platform/pe_import_names.h"

namespace calder {
namespace {

// More libraries than a vendor ships beside one DLL: a forged chain of
// imports must not make us spin.
constexpr size_t kMaxLibraries = 16;

std::string Ascii(const std::wstring& wide) {
  std::string narrow;
  for (wchar_t c : wide) narrow += c > 0x20 && c < 0x7F ? static_cast<char>(c) : '?';
  return narrow;
}

std::wstring Wide(const std::string& ascii) { return std::wstring(ascii.begin(), ascii.end()); }

std::string Lower(std::string name) {
  for (char& c : name) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  return name;
}

}  // namespace

CheckedLibrary::CheckedLibrary(const std::wstring& parent, const std::wstring& folderName,
                               const std::wstring& file)
    : folder_(parent + L"\\" + folderName),
      folderName_(Ascii(folderName)),
      path_(folder_ + L"\\" + file) {
  held_.push_back(std::make_unique<HeldFile>(folder_, true));
  if (!held_.back()->trusted()) {
    Refuse(folderName_ + "\\", held_.back()->why());
    return;
  }
  if (!Visit(Ascii(file), true)) return;
  for (const std::string& name : loadOrder_) {
    // The library itself comes last.
    module_ = LoadLibraryExW((folder_ + L"\\" + Wide(name)).c_str(), nullptr,
                             LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (module_ == nullptr) {
      const DWORD error = GetLastError();
      Refuse(folderName_ + "\\" + name, "could not be loaded, error " + std::to_string(error));
      return;
    }
  }
}

bool CheckedLibrary::Refuse(const std::string& what, const std::string& why) {
  refused_ = what;
  why_ = why;
  return false;
}

bool CheckedLibrary::Visit(const std::string& name, bool root) {
  if (std::find(visited_.begin(), visited_.end(), Lower(name)) != visited_.end()) return true;
  visited_.push_back(Lower(name));
  const std::string what = folderName_ + "\\" + name;
  if (visited_.size() > kMaxLibraries) {
    return Refuse(what, "is one library more than the " + std::to_string(kMaxLibraries) +
                            " read from one folder");
  }
  auto file = std::make_unique<HeldFile>(folder_ + L"\\" + Wide(name), false);
  if (file->missing() && !root) return true;  // then only the system folder has it
  if (!file->trusted()) return Refuse(what, file->why());
  std::string bytes;
  std::vector<std::string> imports;
  if (!file->ReadAll(&bytes) ||
      !ReadImportNames(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), &imports)) {
    return Refuse(what, "has an import table that cannot be read");
  }
  held_.push_back(std::move(file));
  if (root) bytes_ = bytes;
  for (const std::string& imported : imports) {
    if (!Visit(imported, false)) return false;
  }
  loadOrder_.push_back(name);
  return true;
}

}  // namespace calder
