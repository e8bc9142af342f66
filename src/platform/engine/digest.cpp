// SHA-1 and SHA-256 (FIPS 180-4), written out rather than taken from
// OpenSSL: every apply digests every service, and the first digest through
// OpenSSL starts its configuration and providers, which costs a command
// that handles no certificate more than all its digests together.
#include "platform/engine/digest.hpp"

#include <array>
#include <bit>

namespace engine {
namespace {

// What both share: 64-byte blocks of big-endian 32-bit words, padded with
// 0x80, zeros and the message's length in bits.
template <size_t StateWords, typename Compress>
std::vector<uint8_t> hashParts(std::array<uint32_t, StateWords> state, Compress compress,
                               std::initializer_list<std::string_view> parts) {
  uint8_t block[64];
  size_t used = 0;
  uint64_t length = 0;
  auto add = [&](uint8_t byte) {
    block[used++] = byte;
    if (used == sizeof block) {
      compress(state, block);
      used = 0;
    }
  };
  for (std::string_view part : parts) {
    for (char c : part) add(static_cast<uint8_t>(c));
    length += part.size();
  }
  const uint64_t bits = length * 8;
  add(0x80);
  while (used != 56) add(0);
  for (int shift = 56; shift >= 0; shift -= 8) add(static_cast<uint8_t>(bits >> shift));
  std::vector<uint8_t> out;
  for (uint32_t word : state) {
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<uint8_t>(word >> shift));
  }
  return out;
}

uint32_t wordAt(const uint8_t *bytes) {
  return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

void sha1Block(std::array<uint32_t, 5> &h, const uint8_t *block) {
  uint32_t w[80];
  for (int i = 0; i < 16; ++i) w[i] = wordAt(block + 4 * i);
  for (int i = 16; i < 80; ++i) w[i] = std::rotl(w[i - 3] ^ w[i - 8] ^ w[i - 14] ^ w[i - 16], 1);
  uint32_t a = h[0], b = h[1], c = h[2], d = h[3], e = h[4];
  for (int i = 0; i < 80; ++i) {
    uint32_t f, k;
    if (i < 20) {
      f = (b & c) | (~b & d);
      k = 0x5A827999;
    } else if (i < 40) {
      f = b ^ c ^ d;
      k = 0x6ED9EBA1;
    } else if (i < 60) {
      f = (b & c) | (b & d) | (c & d);
      k = 0x8F1BBCDC;
    } else {
      f = b ^ c ^ d;
      k = 0xCA62C1D6;
    }
    uint32_t t = std::rotl(a, 5) + f + e + k + w[i];
    e = d;
    d = c;
    c = std::rotl(b, 30);
    b = a;
    a = t;
  }
  h[0] += a;
  h[1] += b;
  h[2] += c;
  h[3] += d;
  h[4] += e;
}

constexpr uint32_t kSha256Rounds[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4,
    0xab1c5ed5, 0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe,
    0x9bdc06a7, 0xc19bf174, 0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f,
    0x4a7484aa, 0x5cb0a9dc, 0x76f988da, 0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7,
    0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967, 0x27b70a85, 0x2e1b2138, 0x4d2c6dfc,
    0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85, 0xa2bfe8a1, 0xa81a664b,
    0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070, 0x19a4c116,
    0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7,
    0xc67178f2};

void sha256Block(std::array<uint32_t, 8> &h, const uint8_t *block) {
  uint32_t w[64];
  for (int i = 0; i < 16; ++i) w[i] = wordAt(block + 4 * i);
  for (int i = 16; i < 64; ++i) {
    uint32_t s0 = std::rotr(w[i - 15], 7) ^ std::rotr(w[i - 15], 18) ^ (w[i - 15] >> 3);
    uint32_t s1 = std::rotr(w[i - 2], 17) ^ std::rotr(w[i - 2], 19) ^ (w[i - 2] >> 10);
    w[i] = w[i - 16] + s0 + w[i - 7] + s1;
  }
  uint32_t a = h[0], b = h[1], c = h[2], d = h[3], e = h[4], f = h[5], g = h[6], k = h[7];
  for (int i = 0; i < 64; ++i) {
    uint32_t t1 = k + (std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25)) +
                  ((e & f) ^ (~e & g)) + kSha256Rounds[i] + w[i];
    uint32_t t2 = (std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22)) +
                  ((a & b) ^ (a & c) ^ (b & c));
    k = g;
    g = f;
    f = e;
    e = d + t1;
    d = c;
    c = b;
    b = a;
    a = t1 + t2;
  }
  h[0] += a;
  h[1] += b;
  h[2] += c;
  h[3] += d;
  h[4] += e;
  h[5] += f;
  h[6] += g;
  h[7] += k;
}

}  // namespace

std::vector<uint8_t> digest(Algorithm algorithm, std::initializer_list<std::string_view> parts) {
  if (algorithm == Algorithm::sha1) {
    return hashParts<5>({0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0}, sha1Block,
                        parts);
  }
  return hashParts<8>({0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a, 0x510e527f, 0x9b05688c,
                       0x1f83d9ab, 0x5be0cd19},
                      sha256Block, parts);
}

std::string hex(const std::vector<uint8_t> &bytes) {
  static const char digits[] = "0123456789abcdef";
  std::string out;
  out.reserve(bytes.size() * 2);
  for (uint8_t byte : bytes) {
    out += digits[byte >> 4];
    out += digits[byte & 15];
  }
  return out;
}

}  // namespace engine
