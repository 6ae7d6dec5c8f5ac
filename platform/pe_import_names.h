#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace calder {

// The names of the libraries a PE image imports at load time, as the
// loader walks its import table (up to the first descriptor without a name
// or an address table). False when the headers or the table cannot be read
// whole, or a name is not a plain file name: nothing is then known of what
// the loader would look for, and names is left empty. Every offset is
// checked against size.
bool ReadImportNames(const uint8_t* data, size_t size, std::vector<std::string>* names);

}  // namespace calder
