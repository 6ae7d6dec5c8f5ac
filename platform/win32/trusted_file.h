#pragma once

#include <windows.h>

#include <string>

namespace calder {

// Why someone other than SYSTEM, Administrators, TrustedInstaller or the
// running account could change what the descriptor protects; empty when
// nobody else can. An allow-list: the owner must be one of the four, and
// an entry that grants more than reading must name SYSTEM, Administrators,
// TrustedInstaller or the owner when the owner is the running account (an
// owner may rewrite the access list anyway). Deny entries only take away;
// inherit-only entries give nothing on the object itself. No access list,
// an entry of any other kind or one that cannot be read: refused.
std::string WhoElseMayChange(PSECURITY_DESCRIPTOR descriptor);

// A file or folder opened for reading, without following a link, and
// shared for reading only: while it is open nobody can write, delete or
// rename it, so what was checked on the handle is what is then loaded.
class HeldFile {
 public:
  // Opens path and checks it on that handle: present, a file (or a folder
  // when folder is true), no reparse point, WhoElseMayChange empty.
  HeldFile(const std::wstring& path, bool folder);
  ~HeldFile();
  HeldFile(const HeldFile&) = delete;
  HeldFile& operator=(const HeldFile&) = delete;

  bool trusted() const { return why_.empty(); }
  // Why it is refused, in words for a trace: "does not exist", "is a
  // reparse point (junction or link)", "Everyone (S-1-1-0) may write it".
  const std::string& why() const { return why_; }
  bool missing() const { return missing_; }
  // Open while trusted; the whole file read through it.
  bool ReadAll(std::string* bytes) const;

 private:
  HANDLE handle_ = INVALID_HANDLE_VALUE;
  std::string why_;
  bool missing_ = false;
};

}  // namespace calder
