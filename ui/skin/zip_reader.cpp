#include "ui/skin/zip_reader.h"

#include <zlib.h>

#include <cstring>

namespace calder {

namespace {

constexpr uint32_t kEndSignature = 0x06054b50;
constexpr uint32_t kCentralSignature = 0x02014b50;
constexpr uint32_t kLocalSignature = 0x04034b50;
constexpr size_t kEndRecordSize = 22;
constexpr size_t kCentralHeaderSize = 46;
constexpr size_t kLocalHeaderSize = 30;
constexpr size_t kMaxCommentSize = 0xFFFF;
constexpr uint16_t kMethodStored = 0;
constexpr uint16_t kMethodDeflate = 8;
constexpr uint16_t kFlagEncrypted = 0x0001;

uint16_t Read16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
uint32_t Read32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
         (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

// The record whose comment length reaches exactly the end of the buffer, so a
// stray signature inside a comment does not count.
bool FindEndRecord(const uint8_t* data, size_t size, size_t* offset) {
  if (size < kEndRecordSize) return false;
  const size_t last = size - kEndRecordSize;
  const size_t first = last > kMaxCommentSize ? last - kMaxCommentSize : 0;
  for (size_t at = last + 1; at-- > first;) {
    if (Read32(data + at) == kEndSignature &&
        at + kEndRecordSize + Read16(data + at + 20) == size) {
      *offset = at;
      return true;
    }
  }
  return false;
}

bool Inflate(const uint8_t* in, uint32_t in_size, uint8_t* out, uint32_t out_size) {
  z_stream stream;
  std::memset(&stream, 0, sizeof stream);
  if (inflateInit2(&stream, -MAX_WBITS) != Z_OK) return false;
  uint8_t spare = 0;  // zlib wants a buffer even when nothing is expected
  stream.next_in = const_cast<Bytef*>(in);
  stream.avail_in = in_size;
  stream.next_out = out_size > 0 ? out : &spare;
  stream.avail_out = out_size > 0 ? out_size : 1;
  const int rc = inflate(&stream, Z_FINISH);
  const bool ok = rc == Z_STREAM_END && stream.total_out == out_size;
  inflateEnd(&stream);
  return ok;
}

}  // namespace

const char* ZipErrorText(ZipError error) {
  switch (error) {
    case ZipError::kNone: return "ok";
    case ZipError::kNoArchive: return "not a zip archive";
    case ZipError::kTruncated: return "archive truncated";
    case ZipError::kBadDirectory: return "central directory corrupt";
    case ZipError::kUnsupported: return "unsupported archive feature";
    case ZipError::kEncrypted: return "entry encrypted";
    case ZipError::kNotFound: return "entry not found";
    case ZipError::kCorruptData: return "entry data corrupt";
    case ZipError::kBadChecksum: return "entry checksum mismatch";
    case ZipError::kTooLarge: return "entry too large";
  }
  return "unknown zip error";
}

ZipError ZipReader::Open(const void* data, size_t size) {
  Close();
  const uint8_t* bytes = static_cast<const uint8_t*>(data);
  if (bytes == nullptr) return ZipError::kNoArchive;
  size_t end = 0;
  if (!FindEndRecord(bytes, size, &end)) return ZipError::kNoArchive;
  const uint8_t* rec = bytes + end;
  const uint16_t disk = Read16(rec + 4);
  const uint16_t directory_disk = Read16(rec + 6);
  const uint16_t entries_here = Read16(rec + 8);
  const uint16_t entry_count = Read16(rec + 10);
  const uint32_t directory_size = Read32(rec + 12);
  const uint32_t directory_offset = Read32(rec + 16);
  if (disk != 0 || directory_disk != 0 || entries_here != entry_count) return ZipError::kUnsupported;
  if (entry_count == 0xFFFF || directory_size == 0xFFFFFFFF || directory_offset == 0xFFFFFFFF)
    return ZipError::kUnsupported;
  if (static_cast<uint64_t>(directory_offset) + directory_size > end) return ZipError::kTruncated;

  std::vector<ZipEntry> entries;
  size_t at = directory_offset;
  const size_t directory_end = static_cast<size_t>(directory_offset) + directory_size;
  for (uint16_t i = 0; i < entry_count; ++i) {
    if (at + kCentralHeaderSize > directory_end) return ZipError::kTruncated;
    const uint8_t* h = bytes + at;
    if (Read32(h) != kCentralSignature) return ZipError::kBadDirectory;
    ZipEntry entry;
    entry.flags = Read16(h + 8);
    entry.method = Read16(h + 10);
    entry.crc = Read32(h + 16);
    entry.compressed_size = Read32(h + 20);
    entry.size = Read32(h + 24);
    const size_t name_size = Read16(h + 28);
    const size_t extra_size = Read16(h + 30);
    const size_t comment_size = Read16(h + 32);
    entry.local_offset = Read32(h + 42);
    const size_t record = kCentralHeaderSize + name_size + extra_size + comment_size;
    if (at + record > directory_end) return ZipError::kTruncated;
    entry.name.assign(reinterpret_cast<const char*>(h + kCentralHeaderSize), name_size);
    entries.push_back(std::move(entry));
    at += record;
  }
  data_ = bytes;
  size_ = size;
  entries_ = std::move(entries);
  return ZipError::kNone;
}

void ZipReader::Close() {
  data_ = nullptr;
  size_ = 0;
  entries_.clear();
}

const ZipEntry* ZipReader::Find(const std::string& name) const {
  for (const ZipEntry& entry : entries_) {
    if (entry.name == name) return &entry;
  }
  return nullptr;
}

ZipError ZipReader::Extract(const std::string& name, std::vector<uint8_t>* out) const {
  out->clear();
  const ZipEntry* entry = Find(name);
  if (entry == nullptr) return ZipError::kNotFound;
  return ExtractEntry(*entry, out);
}

ZipError ZipReader::ExtractEntry(const ZipEntry& entry, std::vector<uint8_t>* out) const {
  if (entry.flags & kFlagEncrypted) return ZipError::kEncrypted;
  if (entry.method != kMethodStored && entry.method != kMethodDeflate) return ZipError::kUnsupported;
  if (entry.size > kMaxEntrySize) return ZipError::kTooLarge;
  if (entry.method == kMethodStored && entry.size != entry.compressed_size)
    return ZipError::kBadDirectory;
  // The local header repeats name and extra with lengths of its own.
  const uint64_t local = entry.local_offset;
  if (local + kLocalHeaderSize > size_) return ZipError::kTruncated;
  const uint8_t* h = data_ + local;
  if (Read32(h) != kLocalSignature) return ZipError::kBadDirectory;
  const uint64_t start = local + kLocalHeaderSize + Read16(h + 26) + Read16(h + 28);
  if (start + entry.compressed_size > size_) return ZipError::kTruncated;
  const uint8_t* payload = data_ + start;

  out->resize(entry.size);
  if (entry.method == kMethodStored) {
    if (entry.size > 0) std::memcpy(out->data(), payload, entry.size);
  } else if (!Inflate(payload, entry.compressed_size, out->data(), entry.size)) {
    out->clear();
    return ZipError::kCorruptData;
  }
  const uint32_t crc = static_cast<uint32_t>(
      crc32(crc32(0L, Z_NULL, 0), out->empty() ? Z_NULL : out->data(), static_cast<uInt>(out->size())));
  if (crc != entry.crc) {
    out->clear();
    return ZipError::kBadChecksum;
  }
  return ZipError::kNone;
}

}  // namespace calder
