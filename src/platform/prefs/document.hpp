// The preferences document on disk: the store's content as one JSON text.
//
//   {"generation": 7, "currentSet": "<set id>",
//    "sets": [{"id", "name", "services": ["<service id>", ...],
//              "selectedVPNService": "<service id>"}],
//    "services": [{"id", "name", "enabled",
//                  "interfaces": [{"type", "configuration", "extended": {...}}],
//                  "protocols": [{"type", "configuration"}]}]}
//
// Interfaces are listed outermost first. Optional members are left out
// rather than written as null.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/prefs/model.hpp"

namespace zn {

// Throw kZNStatusCorruptStore when `text` is not JSON or not shaped as a
// whole preferences document.
Document parseDocument(std::string_view text);
int64_t parseGeneration(std::string_view text);

// The text of `document` stamped with `generation`.
std::string serializeDocument(const Document &document, int64_t generation);

}  // namespace zn
