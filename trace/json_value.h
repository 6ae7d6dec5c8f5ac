#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace calder {

// One JSON value as a trace line holds it. Our own reader rather than a
// library's because texts are bytes: "\u0000".."\u00ff" read back as the one
// byte the trace writer escaped that way, so a text round-trips byte for byte.
struct JsonValue {
  enum class Kind { kNull, kBool, kInt, kNumber, kString, kArray, kObject };
  Kind kind = Kind::kNull;
  bool boolean = false;
  int64_t integer = 0;  // kInt: a number with no fraction or exponent that fits
  std::string text;     // kString
  std::vector<JsonValue> items;                              // kArray
  std::vector<std::pair<std::string, JsonValue>> members;    // kObject, in order

  // The member's value, or null when there is none (the last of repeated keys).
  const JsonValue* Find(const char* key) const;
};

// The whole text as one value, blanks around it allowed. False for anything
// that is not JSON, nested deeper than a trace line could be included.
bool ParseJson(const std::string& text, JsonValue* value);

}  // namespace calder
