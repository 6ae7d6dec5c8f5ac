#include "platform/win32/new_file.h"

namespace calder {

HANDLE CreateNewFile(const std::string& path) {
  HANDLE file = CreateFileA(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW,
                            FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
  if (file == INVALID_HANDLE_VALUE) return file;
  FILE_ATTRIBUTE_TAG_INFO tag = {};
  if (GetFileInformationByHandleEx(file, FileAttributeTagInfo, &tag, sizeof tag) &&
      (tag.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) {
    return file;
  }
  CloseHandle(file);
  return INVALID_HANDLE_VALUE;
}

}  // namespace calder
