#include "platform/encoding/base64.hpp"

#include <cstdint>

namespace pv::base64 {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int digitOf(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}

}  // namespace

std::string encode(std::string_view bytes) {
  const size_t length = bytes.size();
  std::string out;
  out.reserve((length + 2) / 3 * 4);
  for (size_t i = 0; i < length; i += 3) {
    uint32_t chunk = uint32_t(uint8_t(bytes[i])) << 16;
    if (i + 1 < length) chunk |= uint32_t(uint8_t(bytes[i + 1])) << 8;
    if (i + 2 < length) chunk |= uint8_t(bytes[i + 2]);
    out += kAlphabet[(chunk >> 18) & 63];
    out += kAlphabet[(chunk >> 12) & 63];
    out += i + 1 < length ? kAlphabet[(chunk >> 6) & 63] : '=';
    out += i + 2 < length ? kAlphabet[chunk & 63] : '=';
  }
  return out;
}

std::optional<std::string> decode(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  size_t padding = 0;
  while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=') ++padding;
  std::string out;
  out.reserve(text.size() / 4 * 3);
  for (size_t i = 0; i < text.size(); i += 4) {
    uint32_t chunk = 0;
    for (size_t j = 0; j < 4; ++j) {
      bool isPadding = i + j >= text.size() - padding;
      int digit = isPadding ? 0 : digitOf(text[i + j]);
      if (digit < 0) return std::nullopt;
      chunk = chunk << 6 | uint32_t(digit);
    }
    out += char(chunk >> 16);
    if (i + 4 < text.size() || padding < 2) out += char(chunk >> 8);
    if (i + 4 < text.size() || padding < 1) out += char(chunk);
    bool lastChunk = i + 4 == text.size();
    if (lastChunk && ((padding == 1 && (chunk & 0xFF)) || (padding == 2 && (chunk & 0xFFFF)))) {
      return std::nullopt;
    }
  }
  return out;
}

}  // namespace pv::base64
