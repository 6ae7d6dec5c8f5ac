// Any buffer handed to the skin zip reader: open it, extract every entry.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "ui/skin/zip_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  calder::ZipReader reader;
  if (reader.Open(data, size) != calder::ZipError::kNone) return 0;
  std::vector<uint8_t> out, again;
  for (const calder::ZipEntry& entry : reader.Entries()) {
    // Names may repeat: extraction answers for the first entry of a name,
    // with exactly its declared size, the same way twice.
    const calder::ZipEntry* first = reader.Find(entry.name);
    const calder::ZipError e = reader.Extract(entry.name, &out);
    if (e == calder::ZipError::kNone && out.size() != first->size) std::abort();
    if (reader.Extract(entry.name, &again) != e || again != out) std::abort();
  }
  return 0;
}
