#include <windows.h>

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "platform/win32/trace_file_win32.h"

namespace calder {
namespace {

std::string Read(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// Lines are in the file as soon as they are appended; a file planted at the
// name is neither opened nor changed.
TEST(Win32TraceFile, WritesANewFileLineByLineAndNeverOneThatIsThere) {
  const std::string path = "C:\\calder-trace-file-test.ndjson";
  DeleteFileA(path.c_str());
  Win32TraceFile* trace = Win32TraceFile::CreateNew(path);
  ASSERT_NE(trace, nullptr);
  trace->Append("{\"seq\":1}\n");
  trace->Append("{\"seq\":2}\n");
  EXPECT_EQ(Read(path), "{\"seq\":1}\n{\"seq\":2}\n");

  const std::string planted = "C:\\calder-trace-file-planted.ndjson";
  std::ofstream(planted, std::ios::binary) << "planted";
  EXPECT_EQ(Win32TraceFile::CreateNew(planted), nullptr);
  EXPECT_EQ(Read(planted), "planted");
  DeleteFileA(planted.c_str());
}

}  // namespace
}  // namespace calder
