#include "driver/folder_trust.h"

namespace calder {
namespace {

constexpr char kReparsePoint[] = "is a reparse point (junction or link)";

TrustVerdict Refuse(const std::string& path, const std::string& reason) {
  return {false, path, reason};
}

}  // namespace

TrustVerdict CheckFolder(FileSystem& files, const std::string& path) {
  const PathFacts facts = files.Inspect(path);
  if (!facts.exists) return Refuse(path, "does not exist");
  if (facts.isReparsePoint) return Refuse(path, kReparsePoint);
  switch (facts.owner) {
    case PathOwner::kSystemOrAdministrators:
    case PathOwner::kRunningAccount:  // it runs elevated already: nothing to gain
      return {};
    case PathOwner::kOther:
      return Refuse(path, "is owned by someone other than SYSTEM, Administrators, "
                          "TrustedInstaller or this account");
    case PathOwner::kUnreadable:
      break;
  }
  return Refuse(path, "has an owner that cannot be read");
}

bool IsAtOrUnder(const std::string& root, const std::string& path) {
  return path.compare(0, root.size(), root) == 0 &&
         (path.size() == root.size() || path[root.size()] == '\\');
}

TrustVerdict CheckFolderChain(FileSystem& files, const std::string& root,
                              const std::string& folder) {
  if (!IsAtOrUnder(root, folder)) return Refuse(folder, "lies outside " + root);
  size_t end = root.size();
  while (true) {
    TrustVerdict verdict = CheckFolder(files, folder.substr(0, end));
    if (!verdict.trusted || end == folder.size()) return verdict;
    end = folder.find('\\', end + 1);
    if (end == std::string::npos) end = folder.size();
  }
}

TrustVerdict CheckFileTarget(FileSystem& files, const std::string& path) {
  if (files.Inspect(path).isReparsePoint) return Refuse(path, kReparsePoint);
  return {};
}

}  // namespace calder
