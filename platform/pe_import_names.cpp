#include "platform/pe_import_names.h"

namespace calder {
namespace {

constexpr size_t kNewHeaderOffsetAt = 0x3C;
constexpr size_t kCoffHeaderSize = 20;
constexpr size_t kSectionHeaderSize = 40;
constexpr size_t kImportDescriptorSize = 20;
constexpr uint16_t kPe32Magic = 0x10B;
constexpr uint16_t kPe32PlusMagic = 0x20B;
constexpr size_t kDirectoriesAt32 = 96;  // from the optional header's start
constexpr size_t kDirectoriesAt64 = 112;
constexpr uint32_t kImportDirectory = 1;
// Far more than a real library has; a forged table must not make us spin.
constexpr size_t kMaxImports = 1024;
constexpr size_t kMaxNameLength = 255;

class Bytes {
 public:
  Bytes(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  bool U16(size_t at, uint16_t* value) const {
    if (at > size_ || size_ - at < 2) return false;
    *value = static_cast<uint16_t>(data_[at] | data_[at + 1] << 8);
    return true;
  }
  bool U32(size_t at, uint32_t* value) const {
    if (at > size_ || size_ - at < 4) return false;
    *value = static_cast<uint32_t>(data_[at]) | static_cast<uint32_t>(data_[at + 1]) << 8 |
             static_cast<uint32_t>(data_[at + 2]) << 16 | static_cast<uint32_t>(data_[at + 3]) << 24;
    return true;
  }
  uint8_t At(size_t at) const { return at < size_ ? data_[at] : 0; }
  size_t size() const { return size_; }

 private:
  const uint8_t* data_;
  size_t size_;
};

struct Section {
  uint32_t address = 0, virtualSize = 0, rawSize = 0, rawOffset = 0;
};

// The file offset of an RVA and how many bytes of the section's raw data
// follow it; false when no section's raw data holds it.
bool FileOffsetOf(const std::vector<Section>& sections, uint32_t rva, size_t* offset,
                  size_t* left) {
  for (const Section& s : sections) {
    if (rva < s.address || rva - s.address >= s.rawSize) continue;
    *offset = static_cast<size_t>(s.rawOffset) + (rva - s.address);
    *left = s.rawSize - (rva - s.address);
    return true;
  }
  return false;
}

// A name the loader takes as a file name to search for, nothing it could
// read as a path.
bool PlainFileName(const std::string& name) {
  if (name.empty() || name == "." || name == "..") return false;
  for (char c : name) {
    if (c < 0x20 || c > 0x7E || c == '\\' || c == '/' || c == ':') return false;
  }
  return true;
}

bool ReadName(const Bytes& bytes, const std::vector<Section>& sections, uint32_t rva,
              std::string* name) {
  size_t at = 0, left = 0;
  if (!FileOffsetOf(sections, rva, &at, &left)) return false;
  for (size_t i = 0; i < left && i <= kMaxNameLength && at + i < bytes.size(); ++i) {
    const char c = static_cast<char>(bytes.At(at + i));
    if (c == '\0') return PlainFileName(*name);
    name->push_back(c);
  }
  return false;
}

bool ReadInto(const uint8_t* data, size_t size, std::vector<std::string>* names) {
  const Bytes bytes(data, size);
  uint32_t pe = 0, signature = 0, importRva = 0, count = 0;
  uint16_t sectionCount = 0, optionalSize = 0, magic = 0;
  if (size < 2 || data[0] != 'M' || data[1] != 'Z' || !bytes.U32(kNewHeaderOffsetAt, &pe) ||
      !bytes.U32(pe, &signature) || signature != 0x00004550 ||
      !bytes.U16(size_t{pe} + 6, &sectionCount) || !bytes.U16(size_t{pe} + 20, &optionalSize)) {
    return false;
  }
  const size_t optional = size_t{pe} + 4 + kCoffHeaderSize;
  if (!bytes.U16(optional, &magic) || (magic != kPe32Magic && magic != kPe32PlusMagic)) return false;
  const size_t directories = optional + (magic == kPe32Magic ? kDirectoriesAt32 : kDirectoriesAt64);
  if (!bytes.U32(directories - 4, &count) || count <= kImportDirectory ||
      directories + 8 * (kImportDirectory + 1) > optional + optionalSize ||
      !bytes.U32(directories + 8 * kImportDirectory, &importRva)) {
    return false;
  }
  std::vector<Section> sections;
  const size_t table = optional + optionalSize;
  for (uint16_t i = 0; i < sectionCount; ++i) {
    Section s;
    const size_t at = table + i * kSectionHeaderSize;
    if (!bytes.U32(at + 8, &s.virtualSize) || !bytes.U32(at + 12, &s.address) ||
        !bytes.U32(at + 16, &s.rawSize) || !bytes.U32(at + 20, &s.rawOffset)) {
      return false;
    }
    sections.push_back(s);
  }
  if (importRva == 0) return true;
  size_t at = 0, left = 0;
  if (!FileOffsetOf(sections, importRva, &at, &left)) return false;
  for (size_t i = 0; i < kMaxImports; ++i) {
    uint32_t nameRva = 0, firstThunk = 0;
    if ((i + 1) * kImportDescriptorSize > left || !bytes.U32(at + 12, &nameRva) ||
        !bytes.U32(at + 16, &firstThunk)) {
      return false;
    }
    if (nameRva == 0 || firstThunk == 0) return true;
    std::string name;
    if (!ReadName(bytes, sections, nameRva, &name)) return false;
    names->push_back(name);
    at += kImportDescriptorSize;
  }
  return false;
}

}  // namespace

bool ReadImportNames(const uint8_t* data, size_t size, std::vector<std::string>* names) {
  names->clear();
  if (ReadInto(data, size, names)) return true;
  names->clear();
  return false;
}

}  // namespace calder
