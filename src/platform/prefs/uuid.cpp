#include "platform/prefs/uuid.hpp"

#include <cstdint>

#include "platform/random/random.hpp"

namespace pv {

std::string randomUuid() {
  uint8_t bytes[16];
  if (!platform::randomBytes(bytes, sizeof bytes)) return {};
  bytes[6] = uint8_t((bytes[6] & 0x0F) | 0x40);  // version 4
  bytes[8] = uint8_t((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
  static const char hex[] = "0123456789abcdef";
  std::string out;
  for (int i = 0; i < 16; ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) out += '-';
    out += hex[bytes[i] >> 4];
    out += hex[bytes[i] & 15];
  }
  return out;
}

}  // namespace pv
