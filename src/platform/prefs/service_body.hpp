// A service's body in its row: the interface chain and the protocols as one
// JSON text.
//
//   {"types": ["<outermost layer's type>", ...],
//    "protocols": [{"type", "configuration"}],
//    "interfaces": [{"type", "configuration", "extended": {"<entity>": {...}}}]}
//
// Interfaces are listed outermost first; "types" repeats their types, so
// that the layer types and the protocols are read without the interfaces,
// which are read when a layer is first used. Each configuration is decoded
// when first read. Optional members are left out rather than written as
// null. Bodies written before "types" existed list their interfaces first
// and no types: they are read whole.
#pragma once

#include <string>
#include <string_view>

#include "platform/prefs/model.hpp"

namespace zn {

// Throws kZNStatusCorruptStore when `text` is not a whole service body.
// Type names come from `arena`, which must keep `text` for the body's
// configurations to decode from.
//
// With `outlineTypes`, reads a body that lists its types and protocols
// ahead of its interfaces only that far: the chain is left empty and the
// types go to `outlineTypes` (borrowed from the arena). Any other body is
// read whole, `outlineTypes` left empty.
ServiceBody decodeServiceBody(std::string_view text, Arena &arena,
                              std::vector<PVStringRef> *outlineTypes = nullptr);
// The interfaces of a body whose outline was read (its `types`), which they
// must agree with; the rest of the text is only stepped over.
std::vector<Layer> decodeServiceChain(std::string_view text, Arena &arena,
                                      const std::vector<PVStringRef> &types);
std::string encodeServiceBody(const ServiceBody &body);

// A string read from the store; kZNStatusCorruptStore when it is not UTF-8
// or holds U+0000, which no string value can.
StringRef storedString(std::string_view text);

}  // namespace zn
