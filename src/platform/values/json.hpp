// Property values as JSON, for the preferences documents and payload files.
//
//   dictionary  <->  object (string keys only)
//   array       <->  array
//   string      <->  string
//   integer     <->  integer, floating number <-> number with a fraction or
//                    exponent: the two stay apart through a round trip
//   boolean     <->  true / false (the shared kPVBooleanTrue / kPVBooleanFalse)
//   data        <->  {"$data": "<base64>"}
//
// Sets, platform handles, JSON null and non-finite numbers have no
// counterpart. Neither function throws: a failure comes back as a reason.
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "tarnwick/platform/values.h"

namespace pv::json {

// The JSON form of `value` into `out`; false with a reason in `error` when
// the value, or anything inside it, has no JSON form.
bool toJson(PVTypeRef value, nlohmann::json &out, std::string &error) noexcept;

// Gives the string for a dictionary key, borrowed, or null when the text
// cannot be one. A caller decoding many dictionaries can hand out one string
// per distinct key instead of a new one each time.
using KeyStrings = std::function<PVStringRef(std::string_view text)>;

// A new value for `json` (the caller releases it), or null with a reason in
// `error`. Dictionary keys come from `keys` when given.
PVTypeRef createFromJson(const nlohmann::json &json, std::string &error,
                         const KeyStrings &keys = {}) noexcept;

}  // namespace pv::json
