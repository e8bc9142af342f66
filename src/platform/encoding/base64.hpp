// Base64 (the standard alphabet, padded): the text form of data in JSON and
// of the exported shared secret.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace pv::base64 {

std::string encode(std::string_view bytes);
// Strict: padded to a multiple of four, no whitespace, no stray bits in the
// last digit; nullopt for anything else.
[[nodiscard]] std::optional<std::string> decode(std::string_view text);

}  // namespace pv::base64
