#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "touchpad/btl_upgrade_config.h"
#include "touchpad/tp_arguments.h"
#include "touchpad/tp_update.h"

namespace calder {
namespace {

std::vector<uint8_t> Bytes(const btl_upgrade_config& config) {
  std::vector<uint8_t> bytes(sizeof config);
  std::memcpy(bytes.data(), &config, sizeof config);
  return bytes;
}

void PutPointer(std::vector<uint8_t>* bytes, size_t offset, const void* pointer) {
  uint64_t value = reinterpret_cast<uintptr_t>(pointer);
  for (int i = 0; i < 8; ++i) (*bytes)[offset + i] = static_cast<uint8_t>(value >> (8 * i));
}

TEST(UpgradeConfigRecord, IsFiftySixBytesWithEveryUnnamedByteZero) {
  const char hwId[] = "ACPI\\BLTP7853";
  const btl_upgrade_config config =
      BuildUpgradeConfig(hwId, 0x41, 1, &TPProgressCallback, &TPLogCallback);
  std::vector<uint8_t> expected = {
      0, 0, 0, 0, 0, 0, 0, 0,  // hardware id pointer
      0x41, 0, 0, 0,           // chip id, three zero bytes
      1, 0, 0, 0,              // have boot
      0, 0, 0, 0,              // option words 0, 1, 0
      1, 0, 0, 0,
      0, 0, 0, 0,
      0, 0, 0, 0,              // zero
      0, 0, 0, 0, 0, 0, 0, 0,  // progress callback
      0, 0, 0, 0, 0, 0, 0, 0,  // log callback
      0, 0, 0, 0, 0, 0, 0, 0,  // null last word
  };
  ASSERT_EQ(expected.size(), 56u);
  PutPointer(&expected, 0, hwId);
  PutPointer(&expected, 32, reinterpret_cast<const void*>(&TPProgressCallback));
  PutPointer(&expected, 40, reinterpret_cast<const void*>(&TPLogCallback));
  EXPECT_EQ(Bytes(config), expected);
}

TEST(UpgradeConfigRecord, CarriesOverriddenChipIdAndNoBoot) {
  const btl_upgrade_config config = BuildUpgradeConfig("X", 0xFF, 0, nullptr, nullptr);
  const std::vector<uint8_t> bytes = Bytes(config);
  EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + 8, bytes.begin() + 32),
            (std::vector<uint8_t>{0xFF, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                  1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TPSettings Parse(std::vector<std::string> options) {
  std::vector<std::string> args = {"TPUpdate.exe", "upgrade"};
  args.insert(args.end(), options.begin(), options.end());
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(&a[0]);
  return ParseTPArguments(static_cast<int>(argv.size()), argv.data());
}

TEST(TPArguments, DefaultsAreTheOnesInForceNotTheAdvertisedOnes) {
  const TPSettings s = Parse({});
  EXPECT_EQ(s.hwId, "ACPI\\BLTP7853");
  EXPECT_EQ(s.chipId, 0x41);
  EXPECT_EQ(s.haveBoot, 1);
  EXPECT_FALSE(s.hasFile);
}

TEST(TPArguments, ChipIdIsHexTruncatedToEightBits) {
  EXPECT_EQ(Parse({"--chip-id", "1FF"}).chipId, 0xFF);
  EXPECT_EQ(Parse({"--chip-id", "zz"}).chipId, 0x00);
  EXPECT_EQ(Parse({"--chip-id", " 0x43"}).chipId, 0x43);
  EXPECT_EQ(Parse({"--chip-id", "-1"}).chipId, 0xFF);
  EXPECT_EQ(Parse({"--chip-id", "4g"}).chipId, 0x04);
}

TEST(TPArguments, TrailingValueOptionsAreIgnored) {
  EXPECT_EQ(Parse({"a.bin", "--hw-id"}).hwId, "ACPI\\BLTP7853");
  EXPECT_EQ(Parse({"--chip-id"}).chipId, 0x41);
  EXPECT_EQ(Parse({"--hw-id", "ACPI\\OTHER"}).hwId, "ACPI\\OTHER");
}

TEST(TPArguments, LastFileWinsAndAnEmptyEntryIsAFile) {
  TPSettings s = Parse({"first.bin", "--no-boot", "-x", "second.bin"});
  EXPECT_EQ(s.file, "second.bin");
  EXPECT_EQ(s.haveBoot, 0);
  s = Parse({""});
  EXPECT_TRUE(s.hasFile);
  EXPECT_EQ(s.file, "");
  // An option's value is consumed, never taken as a file.
  s = Parse({"--hw-id", "ID", "--chip-id", "42"});
  EXPECT_FALSE(s.hasFile);
  EXPECT_EQ(s.chipId, 0x42);
}

}  // namespace
}  // namespace calder
