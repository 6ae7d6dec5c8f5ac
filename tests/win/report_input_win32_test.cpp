#include <windows.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "report/fleet_reader.h"
#include "report/platform_input.h"

namespace calder::report {
namespace {

// Names outside any ANSI code page: the report reaches them through wide
// calls only, and records them as UTF-8.
const wchar_t kFolder[] = L"C:\\calder-report-\u00e9\u4e2d";
const wchar_t kLog[] = L"C:\\calder-report-\u00e9\u4e2d\\Calder_\u4e2d.log";
const char kLogText[] =
    "2026-04-22 09:30:15.123 INFO calder.cpp 97: Current version: 20260422-01\r\n"
    "2026-04-22 09:30:15.124 INFO calder.cpp 66: CoInitializeEx failed: -2147417850\r\n"
    "2026-04-22 09:30:15.125 INFO calder.cpp 48: main returned: 1\r\n";

TEST(ReportInput, LogsUnderNamesOutsideTheCodePageAreFoundAndRead) {
  CreateDirectoryW(kFolder, nullptr);
  HANDLE file = CreateFileW(kLog, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  DWORD written = 0;
  WriteFile(file, kLogText, sizeof kLogText - 1, &written, nullptr);
  CloseHandle(file);

  InputFile input;
  std::string reason;
  ASSERT_TRUE(input.Open(std::filesystem::path(kLog), &reason)) << reason;
  char buffer[512];
  EXPECT_EQ(input.Read(buffer, sizeof buffer, &reason), static_cast<long>(sizeof kLogText - 1));
  EXPECT_EQ(input.Read(buffer, sizeof buffer, &reason), 0);
  input.Close();
  // A folder or a missing file is refused with the system's reason.
  EXPECT_FALSE(input.Open(std::filesystem::path(kFolder), &reason));
  EXPECT_FALSE(reason.empty());
  reason.clear();
  EXPECT_FALSE(input.Open(std::filesystem::path(L"C:\\calder-report-missing.log"), &reason));
  EXPECT_FALSE(reason.empty());

  std::FILE* sink = std::tmpfile();
  const FleetRead read = ReadFleet({std::filesystem::path(kFolder).u8string()}, false, sink, sink);
  std::fclose(sink);
  EXPECT_EQ(read.inputsRead, 1u);
  EXPECT_EQ(read.summary.causes[static_cast<int>(Cause::kComInit)], 1u);
  EXPECT_EQ(read.summary.examples[static_cast<int>(Cause::kComInit)], std::filesystem::path(kLog).u8string());
  DeleteFileW(kLog);
  RemoveDirectoryW(kFolder);
}

}  // namespace
}  // namespace calder::report
