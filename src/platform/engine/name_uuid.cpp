#include "platform/engine/name_uuid.hpp"

#include <cstdint>

#include "platform/engine/digest.hpp"

namespace engine {
namespace {

// Tarnwick's namespace for connection identifiers. Never change it: every
// connection already made would stop being recognised.
constexpr char kNamespace[16] = {'\x5b', '\x3c', '\x8e', '\x1f', '\x47', '\x2d', '\x4a', '\x90',
                                 '\xb6', '\x0e', '\x7d', '\x21', '\xc9', '\x53', '\xf4', '\x18'};

}  // namespace

std::string nameUuid(std::string_view name) {
  std::vector<uint8_t> bytes =
      digest(Algorithm::sha1, {std::string_view(kNamespace, sizeof kNamespace), name});
  bytes.resize(16);
  bytes[6] = uint8_t((bytes[6] & 0x0F) | 0x50);  // version 5
  bytes[8] = uint8_t((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
  std::string digits = hex(bytes);
  return digits.substr(0, 8) + '-' + digits.substr(8, 4) + '-' + digits.substr(12, 4) + '-' +
         digits.substr(16, 4) + '-' + digits.substr(20);
}

}  // namespace engine
