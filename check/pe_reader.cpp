#include "check/pe_reader.h"

#include <algorithm>

#include "check/le_bytes.h"

namespace calder::check {

namespace {

constexpr size_t kDosNewHeaderOffset = 0x3C;
constexpr size_t kCoffHeaderSize = 20;
constexpr size_t kSectionHeaderSize = 40;
constexpr size_t kExportDirectorySize = 40;
constexpr size_t kImportDescriptorSize = 20;
constexpr size_t kChecksumOffset = 64;   // same in PE32 and PE32+
constexpr size_t kSubsystemOffset = 68;  // same in PE32 and PE32+
constexpr size_t kDirectoryCountOffset32 = 92;
constexpr size_t kDirectoryCountOffset64 = 108;
// Far more than any real library has; a forged count must not make us spin.
constexpr uint32_t kMaxExportNames = 65536;
constexpr uint32_t kMaxImportLibraries = 4096;
enum DirectoryIndex : uint32_t { kExportDirectory = 0, kImportDirectory = 1, kCertificateDirectory = 4 };

struct Section {
  uint32_t virtualAddress = 0;
  uint32_t virtualSize = 0;
  uint32_t rawSize = 0;
  uint32_t rawOffset = 0;
};

// File offset of an RVA, when a section's raw data holds it.
bool FileOffsetOf(const std::vector<Section>& sections, uint32_t rva, size_t* offset) {
  for (const Section& s : sections) {
    const uint32_t span = std::max(s.virtualSize, s.rawSize);
    if (rva < s.virtualAddress || rva - s.virtualAddress >= span) continue;
    const uint32_t into = rva - s.virtualAddress;
    if (into >= s.rawSize) return false;
    *offset = static_cast<size_t>(s.rawOffset) + into;
    return true;
  }
  return false;
}

PeImage Invalid(const char* problem) {
  PeImage image;
  image.problem = problem;
  return image;
}

bool ReadSections(const LeBytes& bytes, size_t at, uint16_t count, std::vector<Section>* out) {
  for (uint16_t i = 0; i < count; ++i) {
    const size_t base = at + i * kSectionHeaderSize;
    Section s;
    if (!bytes.U32(base + 8, &s.virtualSize) || !bytes.U32(base + 12, &s.virtualAddress) ||
        !bytes.U32(base + 16, &s.rawSize) || !bytes.U32(base + 20, &s.rawOffset)) {
      return false;
    }
    out->push_back(s);
  }
  return true;
}

// The names of the export directory; false when it points outside the file.
bool ReadExportNames(const LeBytes& bytes, const std::vector<Section>& sections, uint32_t rva,
                     std::vector<std::string>* names) {
  size_t directory = 0;
  uint32_t count = 0;
  uint32_t namesRva = 0;
  if (!FileOffsetOf(sections, rva, &directory) || !bytes.Has(directory, kExportDirectorySize) ||
      !bytes.U32(directory + 24, &count) || !bytes.U32(directory + 32, &namesRva)) {
    return false;
  }
  if (count == 0) return true;
  size_t table = 0;
  if (count > kMaxExportNames || !FileOffsetOf(sections, namesRva, &table)) return false;
  for (uint32_t i = 0; i < count; ++i) {
    uint32_t nameRva = 0;
    size_t nameOffset = 0;
    std::string name;
    if (!bytes.U32(table + size_t{4} * i, &nameRva) ||
        !FileOffsetOf(sections, nameRva, &nameOffset) || !bytes.Name(nameOffset, &name)) {
      return false;
    }
    names->push_back(name);
  }
  return true;
}

// Names imported by name from one library's lookup table; entries are 8
// bytes in PE32+ and 4 in PE32, the top bit marking an ordinal.
bool ReadImportedNames(const LeBytes& bytes, const std::vector<Section>& sections, uint32_t tableRva,
                       bool wide, std::vector<std::string>* names) {
  const size_t width = wide ? 8 : 4;
  for (uint32_t i = 0; i <= kMaxExportNames; ++i) {
    size_t at = 0;
    uint32_t low = 0;
    uint32_t high = 0;
    if (!FileOffsetOf(sections, static_cast<uint32_t>(tableRva + width * i), &at) ||
        !bytes.U32(at, &low) || (wide && !bytes.U32(at + 4, &high))) {
      return false;
    }
    if (low == 0 && high == 0) return true;
    const bool byOrdinal = wide ? (high & 0x80000000u) != 0 : (low & 0x80000000u) != 0;
    if (byOrdinal) continue;
    size_t hintName = 0;
    std::string name;
    // A two-byte hint comes before the name.
    if (!FileOffsetOf(sections, low & 0x7FFFFFFFu, &hintName) || !bytes.Name(hintName + 2, &name)) {
      return false;
    }
    names->push_back(name);
  }
  return false;
}

// The import descriptors up to the all-zero one that ends them.
bool ReadImports(const LeBytes& bytes, const std::vector<Section>& sections, uint32_t rva, bool wide,
                 std::vector<ImportedLibrary>* imports) {
  for (uint32_t i = 0; i <= kMaxImportLibraries; ++i) {
    size_t at = 0;
    uint32_t lookupRva = 0;
    uint32_t nameRva = 0;
    uint32_t addressRva = 0;
    if (!FileOffsetOf(sections, static_cast<uint32_t>(rva + kImportDescriptorSize * i), &at) ||
        !bytes.U32(at, &lookupRva) ||
        !bytes.U32(at + 12, &nameRva) || !bytes.U32(at + 16, &addressRva)) {
      return false;
    }
    if (nameRva == 0 && lookupRva == 0 && addressRva == 0) return true;
    ImportedLibrary library;
    size_t nameAt = 0;
    if (!FileOffsetOf(sections, nameRva, &nameAt) || !bytes.Name(nameAt, &library.name) ||
        !ReadImportedNames(bytes, sections, lookupRva != 0 ? lookupRva : addressRva, wide,
                           &library.entries)) {
      return false;
    }
    imports->push_back(library);
  }
  return false;
}

}  // namespace

PeImage ReadPeImage(const uint8_t* data, size_t size) {
  const LeBytes bytes(data, size);
  uint16_t dosMagic = 0;
  uint32_t peOffset = 0;
  if (!bytes.U16(0, &dosMagic) || dosMagic != 0x5A4D) return Invalid("no MZ header");
  uint32_t signature = 0;
  if (!bytes.U32(kDosNewHeaderOffset, &peOffset) || !bytes.U32(peOffset, &signature) ||
      signature != 0x00004550) {
    return Invalid("no PE signature");
  }
  PeImage image;
  const size_t coff = size_t{peOffset} + 4;
  uint16_t sectionCount = 0;
  uint16_t optionalSize = 0;
  if (!bytes.U16(coff, &image.machine) ||
      !bytes.U16(coff + 2, &sectionCount) || !bytes.U16(coff + 16, &optionalSize) ||
      !bytes.U16(coff + 18, &image.characteristics)) {
    return Invalid("file header cut short");
  }
  const size_t optional = coff + kCoffHeaderSize;
  if (!bytes.Has(optional, optionalSize) || !bytes.U16(optional, &image.optionalMagic) ||
      optionalSize < kSubsystemOffset + 2 || !bytes.U16(optional + kSubsystemOffset, &image.subsystem)) {
    return Invalid("optional header cut short");
  }
  std::vector<Section> sections;
  if (!ReadSections(bytes, optional + optionalSize, sectionCount, &sections)) {
    return Invalid("section table cut short");
  }
  const bool wide = image.optionalMagic == kPe32PlusMagic;
  const size_t countAt = optional + (wide ? kDirectoryCountOffset64 : kDirectoryCountOffset32);
  const size_t headersEnd = optional + optionalSize;
  uint32_t directories = 0;
  bytes.U32(countAt, &directories);
  // An entry counts only when the count and the optional header both hold it.
  const auto entryAt = [&](uint32_t index, size_t* at) {
    *at = countAt + 4 + kDataDirectoryEntrySize * index;
    return index < directories && *at + kDataDirectoryEntrySize <= headersEnd;
  };
  size_t entry = 0;
  uint32_t exportRva = 0;
  if (entryAt(kExportDirectory, &entry) && bytes.U32(entry, &exportRva) && exportRva != 0 &&
      !ReadExportNames(bytes, sections, exportRva, &image.exportNames)) {
    return Invalid("export table outside the file");
  }
  uint32_t importRva = 0;
  if (entryAt(kImportDirectory, &entry) && bytes.U32(entry, &importRva) && importRva != 0 &&
      !ReadImports(bytes, sections, importRva, wide, &image.imports)) {
    return Invalid("import table outside the file");
  }
  image.checksumOffset = optional + kChecksumOffset;
  if (entryAt(kCertificateDirectory, &entry)) {
    image.certificateEntryOffset = entry;
    bytes.U32(entry, &image.certificateTableOffset);
    bytes.U32(entry + 4, &image.certificateTableSize);
  }
  image.valid = true;
  return image;
}

bool IsWindows64GuiProgram(const PeImage& image) {
  return image.valid && image.machine == kMachineAmd64 && image.optionalMagic == kPe32PlusMagic &&
         image.subsystem == kSubsystemWindowsGui && (image.characteristics & kFileDll) == 0 &&
         (image.characteristics & kFileExecutableImage) != 0;
}

bool IsWindows64Dll(const PeImage& image) {
  return image.valid && image.machine == kMachineAmd64 && image.optionalMagic == kPe32PlusMagic &&
         (image.characteristics & kFileDll) != 0;
}

bool Exports(const PeImage& image, const std::string& name) {
  return std::find(image.exportNames.begin(), image.exportNames.end(), name) !=
         image.exportNames.end();
}

}  // namespace calder::check
