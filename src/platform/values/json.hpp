// Property values as JSON (tarnwick/platform/json.h gives the mapping), for
// the store's service bodies and, through the public functions, the tool.
// Neither function throws: a failure comes back as a reason.
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "tarnwick/platform/values.h"

namespace pv::json {

// The JSON form of `value` into `out`; false with a reason in `error` when
// the value, or anything inside it, has no JSON form.
[[nodiscard]] bool toJson(PVTypeRef value, nlohmann::json &out, std::string &error) noexcept;

// Gives the string for a dictionary key, borrowed, or null when the text
// cannot be one. A caller decoding many dictionaries can hand out one string
// per distinct key instead of a new one each time.
using KeyStrings = std::function<PVStringRef(std::string_view text)>;
// The data a {"$file": path} object stands for (the caller releases it), or
// null with a reason.
using FileReader = std::function<PVDataRef(std::string_view path, std::string &reason)>;

struct Hooks {
  KeyStrings keys;
  FileReader readFile;  // without one, {"$file": …} is an ordinary dictionary
};

// Why a JSON value has no property value, and where: the key path to it.
struct Failure {
  std::string path;
  std::string reason;
};

// A new value for `json` (the caller releases it), or null with `failure`
// filled in.
[[nodiscard]] PVTypeRef createFromJson(const nlohmann::json &json, Failure &failure,
                         const Hooks &hooks = {}) noexcept;

}  // namespace pv::json
