#pragma once

#include <string>

namespace calder {

extern const char kMarkerFolder[];
extern const char kMarkerFileName[];

std::string MarkerFilePath();
// The executable's path as raw UTF-16LE code units, no BOM, no terminator.
std::string MarkerFileBytes(const std::u16string& modulePath);
// Both do nothing but log one line when the marker's folder chain is refused
// or a link stands where the marker goes.
void WriteProcessPathMarker();
void DeleteProcessPathMarker();

}  // namespace calder
