#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace calder {

enum class ZipError {
  kNone,
  kNoArchive,      // no end-of-central-directory record
  kTruncated,      // a record or entry runs past the buffer
  kBadDirectory,   // central directory inconsistent with itself
  kUnsupported,    // multi-disk, zip64 or a compression method other than stored/deflate
  kEncrypted,
  kNotFound,
  kCorruptData,    // inflate failed or produced a different size
  kBadChecksum,
  kTooLarge,
};

const char* ZipErrorText(ZipError error);

struct ZipEntry {
  std::string name;  // as stored, UTF-8 or code page bytes
  uint16_t flags = 0;
  uint16_t method = 0;
  uint32_t crc = 0;
  uint32_t compressed_size = 0;
  uint32_t size = 0;
  uint32_t local_offset = 0;
};

// Reads a zip archive held in memory. The buffer is borrowed and must outlive
// the reader. Only what a skin zip needs: stored and deflated entries of a
// single-disk archive without zip64 or encryption.
class ZipReader {
 public:
  static constexpr uint32_t kMaxEntrySize = 64u << 20;

  ZipError Open(const void* data, size_t size);
  void Close();
  bool IsOpen() const { return data_ != nullptr; }

  const std::vector<ZipEntry>& Entries() const { return entries_; }
  const ZipEntry* Find(const std::string& name) const;
  ZipError Extract(const std::string& name, std::vector<uint8_t>* out) const;

 private:
  ZipError ExtractEntry(const ZipEntry& entry, std::vector<uint8_t>* out) const;

  const uint8_t* data_ = nullptr;
  size_t size_ = 0;
  std::vector<ZipEntry> entries_;
};

}  // namespace calder
