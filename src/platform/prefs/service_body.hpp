// A service's body in its row: the interface chain and the protocols as one
// JSON text, decoded only when the session first touches the service.
//
//   {"interfaces": [{"type", "configuration", "extended": {"<entity>": {...}}}],
//    "protocols": [{"type", "configuration"}]}
//
// Interfaces are listed outermost first. Optional members are left out
// rather than written as null.
#pragma once

#include <string>
#include <string_view>

#include "platform/prefs/model.hpp"

namespace zn {

// Throws kZNStatusCorruptStore when `text` is not a whole service body.
// Type names come from `arena`.
ServiceBody decodeServiceBody(std::string_view text, Arena &arena);
std::string encodeServiceBody(const ServiceBody &body);

// A string read from the store; kZNStatusCorruptStore when it is not UTF-8
// or holds U+0000, which no string value can.
StringRef storedString(std::string_view text);

}  // namespace zn
