// Any buffer handed to the skin zip reader: open it, extract every entry.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "ui/skin/zip_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  calder::ZipReader reader;
  if (reader.Open(data, size) != calder::ZipError::kNone) return 0;
  std::vector<uint8_t> out;
  for (const calder::ZipEntry& entry : reader.Entries()) {
    // Names may repeat: extraction answers for the first entry of a name.
    const calder::ZipEntry* first = reader.Find(entry.name);
    if (reader.Extract(entry.name, &out) == calder::ZipError::kNone && out.size() != first->size) __builtin_trap();
  }
  reader.Extract("skin.xml", &out);
  return 0;
}
