#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace calder::fuzz {

// The fuzzer's bytes, handed out one decision at a time. Once they run out
// every decision is "leave the device alone", so a short input still drives
// the procedure to its end.
class FuzzInput {
 public:
  FuzzInput(const uint8_t* data, size_t size) : data_(data), left_(size) {}

  bool empty() const { return left_ == 0; }

  // The next byte, or 0 when none is left.
  uint8_t Take() { return left_ == 0 ? 0 : (--left_, *data_++); }

  // Fills count bytes; zeros once the input is used up.
  void Fill(uint8_t* out, size_t count) {
    for (size_t i = 0; i < count; ++i) out[i] = Take();
  }

 private:
  const uint8_t* data_;
  size_t left_;
};

// Reply tampering shared by the device wrappers: what a decision byte does
// to a reply the simulator has already put in the buffer.
enum class Tamper { kKeep, kFlipOne, kReplace, kZero, kFail };  // decision values 0 to 4

inline Tamper TamperOf(uint8_t decision) {
  const uint8_t kind = decision % 8;
  return kind >= 1 && kind <= 4 ? static_cast<Tamper>(kind) : Tamper::kKeep;
}

// Applies the tampering; false when the call is to report failure.
inline bool ApplyTamper(Tamper tamper, FuzzInput& in, uint8_t* buffer, size_t size) {
  switch (tamper) {
    case Tamper::kKeep: return true;
    case Tamper::kFlipOne:
      if (size > 0) {
        const size_t at = in.Take() % size;  // the place first, then the bits
        buffer[at] ^= in.Take();
      }
      return true;
    case Tamper::kReplace: in.Fill(buffer, size); return true;
    case Tamper::kZero: std::fill(buffer, buffer + size, 0); return true;
    case Tamper::kFail: return false;
  }
  return true;
}

// An invariant broke: report it and let libFuzzer keep the input.
inline void Check(bool ok, const char* target, const char* what) {
  if (ok) return;
  std::fprintf(stderr, "%s: %s\n", target, what);
  std::abort();
}

}  // namespace calder::fuzz
