#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace calder::test {

// Writes bytes to a file under the test's temporary folder and returns its path.
std::string WriteTempFile(const std::string& name, const std::vector<uint8_t>& bytes);

// Firmware files as the force tests build them: a raw image of `size` bytes
// with a repeating non-zero pattern, or the same behind a 72-byte "AW8680" header.
std::vector<uint8_t> PatternBytes(size_t size, uint8_t seed = 1);
std::vector<uint8_t> TaggedFile(const std::vector<uint8_t>& image);

}  // namespace calder::test
