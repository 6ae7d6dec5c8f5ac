#include <windows.h>

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "platform/win32/trace_file_win32.h"

namespace calder {
namespace {

std::string Read(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// Lines are in the file once appended; a file planted at the name is neither
// opened nor changed.
TEST(Win32TraceFile, WritesANewFileLineByLineAndNeverOneThatIsThere) {
  const std::string path = "C:\\calder-trace-file-test.ndjson";
  DeleteFileA(path.c_str());
  Win32TraceFile* trace = Win32TraceFile::CreateNew(path);
  ASSERT_NE(trace, nullptr);
  trace->Append("{\"seq\":1}\n");
  trace->Append("{\"seq\":2}\n");
  EXPECT_EQ(Read(path), "{\"seq\":1}\n{\"seq\":2}\n");
  EXPECT_EQ(Win32TraceFile::CreateNew(path), nullptr);
  EXPECT_EQ(Read(path), "{\"seq\":1}\n{\"seq\":2}\n");
}

}  // namespace
}  // namespace calder
