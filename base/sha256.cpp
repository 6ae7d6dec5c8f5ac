#include "base/sha256.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace calder::check {

namespace {

constexpr uint32_t kRoundConstants[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2,
};

constexpr std::array<uint32_t, 8> kInitialState = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                                   0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};

uint32_t Rotr(uint32_t x, int n) { return x >> n | x << (32 - n); }

}  // namespace

Sha256::Sha256() : state_(kInitialState) {}

void Sha256::Block(const uint8_t* block) {
  uint32_t w[64];
  for (int i = 0; i < 16; ++i) {
    w[i] = uint32_t{block[4 * i]} << 24 | uint32_t{block[4 * i + 1]} << 16 |
           uint32_t{block[4 * i + 2]} << 8 | block[4 * i + 3];
  }
  for (int i = 16; i < 64; ++i) {
    const uint32_t s0 = Rotr(w[i - 15], 7) ^ Rotr(w[i - 15], 18) ^ w[i - 15] >> 3;
    const uint32_t s1 = Rotr(w[i - 2], 17) ^ Rotr(w[i - 2], 19) ^ w[i - 2] >> 10;
    w[i] = w[i - 16] + s0 + w[i - 7] + s1;
  }
  uint32_t a = state_[0], b = state_[1], c = state_[2], d = state_[3];
  uint32_t e = state_[4], f = state_[5], g = state_[6], h = state_[7];
  for (int i = 0; i < 64; ++i) {
    const uint32_t t1 = h + (Rotr(e, 6) ^ Rotr(e, 11) ^ Rotr(e, 25)) + ((e & f) ^ (~e & g)) +
                        kRoundConstants[i] + w[i];
    const uint32_t t2 = (Rotr(a, 2) ^ Rotr(a, 13) ^ Rotr(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
    h = g;
    g = f;
    f = e;
    e = d + t1;
    d = c;
    c = b;
    b = a;
    a = t1 + t2;
  }
  const uint32_t next[8] = {a, b, c, d, e, f, g, h};
  for (int i = 0; i < 8; ++i) state_[i] += next[i];
}

void Sha256::Update(const uint8_t* data, size_t size) {
  totalSize_ += size;
  while (size > 0) {
    const size_t take = std::min(size, pending_.size() - pendingSize_);
    std::memcpy(pending_.data() + pendingSize_, data, take);
    pendingSize_ += take;
    data += take;
    size -= take;
    if (pendingSize_ == pending_.size()) {
      Block(pending_.data());
      pendingSize_ = 0;
    }
  }
}

std::array<uint8_t, 32> Sha256::Finish() {
  const uint64_t bits = totalSize_ * 8;
  const uint8_t one = 0x80;
  Update(&one, 1);
  const uint8_t zero = 0;
  while (pendingSize_ != 56) Update(&zero, 1);
  uint8_t length[8];
  for (int i = 0; i < 8; ++i) length[i] = static_cast<uint8_t>(bits >> (56 - 8 * i));
  Update(length, 8);
  std::array<uint8_t, 32> digest;
  for (int i = 0; i < 32; ++i) digest[i] = static_cast<uint8_t>(state_[i / 4] >> (24 - 8 * (i % 4)));
  return digest;
}

std::string HexOf(const uint8_t* data, size_t size) {
  static const char kDigits[] = "0123456789abcdef";
  std::string out;
  for (size_t i = 0; i < size; ++i) {
    out += kDigits[data[i] >> 4];
    out += kDigits[data[i] & 0xF];
  }
  return out;
}

std::string Sha256Hex(const uint8_t* data, size_t size) {
  Sha256 hash;
  hash.Update(data, size);
  const std::array<uint8_t, 32> digest = hash.Finish();
  return HexOf(digest.data(), digest.size());
}

std::optional<std::string> FileSha256(const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) return std::nullopt;
  Sha256 sha;
  uint8_t chunk[65536];
  size_t got = 0;
  while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0) sha.Update(chunk, got);
  const bool failed = std::ferror(file) != 0;
  std::fclose(file);
  if (failed) return std::nullopt;
  const auto digest = sha.Finish();
  return HexOf(digest.data(), digest.size());
}

}  // namespace calder::check
