// A service's body in its row: the interface chain and the protocols as one
// JSON text. Its outline (types, and where each configuration is) is read
// when the session first touches the service; each configuration when it is
// first read.
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
// Type names come from `arena`, which must keep `text` for the body's
// configurations to decode from.
ServiceBody decodeServiceBody(std::string_view text, Arena &arena);
std::string encodeServiceBody(const ServiceBody &body);

// A string read from the store; kZNStatusCorruptStore when it is not UTF-8
// or holds U+0000, which no string value can.
StringRef storedString(std::string_view text);

}  // namespace zn
