#pragma once

#include <cstdint>
#include <cstdio>

namespace calder {

enum class FileSumStatus { Ok, Empty, ShortRead };

struct FileSum {
  FileSumStatus status = FileSumStatus::Ok;
  int32_t size = 0;
  uint32_t sum = 0;  // wraps at 32 bits
};

// Sizes an open file by seeking to its end, reads it whole from the start and
// adds up its bytes. A read that stops short of the size is reported rather
// than summed, since a partial sum can never verify an upgrade.
FileSum SumFileBytes(std::FILE* file);

}  // namespace calder
