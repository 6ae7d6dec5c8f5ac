#pragma once

#include <zlib.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace calder::test {

// Writes small zip archives for the reader's tests: stored or raw-deflated
// entries, local headers, central directory and end record.
class ZipWriter {
 public:
  void Add(const std::string& name, const std::string& content, bool deflate = true) {
    Entry e;
    e.name = name;
    e.size = static_cast<uint32_t>(content.size());
    e.crc = static_cast<uint32_t>(crc32(0L, reinterpret_cast<const Bytef*>(content.data()),
                                        static_cast<uInt>(content.size())));
    e.method = deflate ? 8 : 0;
    e.data = deflate ? Deflate(content) : content;
    e.offset = static_cast<uint32_t>(bytes_.size());
    Put32(0x04034b50);
    Put16(20);
    Put16(0);
    Put16(e.method);
    Put16(0);
    Put16(0x21);
    Put32(e.crc);
    Put32(static_cast<uint32_t>(e.data.size()));
    Put32(e.size);
    Put16(static_cast<uint16_t>(name.size()));
    Put16(0);
    bytes_.append(name);
    bytes_.append(e.data);
    entries_.push_back(e);
  }

  std::string Finish(const std::string& comment = "") {
    std::string out = bytes_;
    const uint32_t directory_offset = static_cast<uint32_t>(out.size());
    for (const Entry& e : entries_) {
      std::string h;
      Append32(&h, 0x02014b50);
      Append16(&h, 20);
      Append16(&h, 20);
      Append16(&h, 0);
      Append16(&h, e.method);
      Append16(&h, 0);
      Append16(&h, 0x21);
      Append32(&h, e.crc);
      Append32(&h, static_cast<uint32_t>(e.data.size()));
      Append32(&h, e.size);
      Append16(&h, static_cast<uint16_t>(e.name.size()));
      Append16(&h, 0);
      Append16(&h, 0);
      Append16(&h, 0);
      Append16(&h, 0);
      Append32(&h, 0);
      Append32(&h, e.offset);
      out += h + e.name;
    }
    const uint32_t directory_size = static_cast<uint32_t>(out.size()) - directory_offset;
    std::string end;
    Append32(&end, 0x06054b50);
    Append16(&end, 0);
    Append16(&end, 0);
    Append16(&end, static_cast<uint16_t>(entries_.size()));
    Append16(&end, static_cast<uint16_t>(entries_.size()));
    Append32(&end, directory_size);
    Append32(&end, directory_offset);
    Append16(&end, static_cast<uint16_t>(comment.size()));
    return out + end + comment;
  }

  static std::string Deflate(const std::string& content) {
    z_stream s;
    std::memset(&s, 0, sizeof s);
    deflateInit2(&s, Z_BEST_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
    std::string out(deflateBound(&s, static_cast<uLong>(content.size())), '\0');
    s.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(content.data()));
    s.avail_in = static_cast<uInt>(content.size());
    s.next_out = reinterpret_cast<Bytef*>(&out[0]);
    s.avail_out = static_cast<uInt>(out.size());
    deflate(&s, Z_FINISH);
    out.resize(s.total_out);
    deflateEnd(&s);
    return out;
  }

 private:
  struct Entry {
    std::string name;
    std::string data;
    uint32_t crc = 0;
    uint32_t size = 0;
    uint32_t offset = 0;
    uint16_t method = 0;
  };
  static void Append16(std::string* s, uint16_t v) {
    s->push_back(static_cast<char>(v & 0xFF));
    s->push_back(static_cast<char>(v >> 8));
  }
  static void Append32(std::string* s, uint32_t v) {
    Append16(s, static_cast<uint16_t>(v & 0xFFFF));
    Append16(s, static_cast<uint16_t>(v >> 16));
  }
  void Put16(uint16_t v) { Append16(&bytes_, v); }
  void Put32(uint32_t v) { Append32(&bytes_, v); }

  std::string bytes_;
  std::vector<Entry> entries_;
};

}  // namespace calder::test
