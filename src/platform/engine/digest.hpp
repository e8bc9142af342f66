// Message digests (SHA-1, SHA-256), for connection identifiers and for
// remembering what was last sent to the engine.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace engine {

enum class Algorithm { sha1, sha256 };

// The digest of the parts, one after the other.
std::vector<uint8_t> digest(Algorithm algorithm, std::initializer_list<std::string_view> parts);

// Lower-case hexadecimal.
std::string hex(const std::vector<uint8_t> &bytes);

}  // namespace engine
