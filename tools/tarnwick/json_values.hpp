// Property values ⇄ JSON, the one conversion the payload files, the JSON
// output and the table output share.
//
// In JSON a data value is written {"$data": "<base64>"}; in a payload file
// {"$file": "relative/path"} stands for the bytes of a file, read relative
// to the payload file's directory.
#pragma once

#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "tarnwick/platform/ref.hpp"
#include "tarnwick/platform/values.h"

namespace tarnwick {

using Json = nlohmann::ordered_json;

// Where a JSON value comes from, for "$file" and for error messages.
struct JsonSource {
  std::string name;                 // the file name, or "VALUE" for the command line
  std::filesystem::path directory;  // "$file" paths are relative to it
};

// The property value a JSON value stands for: strings (keys too) are made
// as new strings, true and false are the shared booleans. Anything that is
// not a property value (null, a bad "$data", an unreadable "$file", an
// integer beyond 64 bits) is a malformed payload, reported with the key
// path of the value.
pv::Ref<PVTypeRef> valueFromJson(const Json &json, const JsonSource &source,
                                 const std::string &path = "");

// The JSON for a value; dictionaries with their keys sorted, so that two
// outputs of equal values are equal text.
Json jsonFromValue(PVTypeRef value);

// The one-line text a table shows for a value: a string bare, data as
// "<N bytes>", anything else as compact JSON (data inside it as its size).
std::string tableText(const Json &json);
std::string tableText(PVTypeRef value);

// The text of a string value ("" for anything else).
std::string textOf(PVTypeRef value);
// A new string made from UTF-8 text; throws on invalid UTF-8.
pv::Ref<PVStringRef> makeString(const std::string &utf8);

std::string base64Encode(const uint8_t *bytes, size_t length);
// Strict: padding required, no whitespace; nullopt for anything else.
std::optional<std::string> base64Decode(std::string_view text);

// The kind of a value in words, for messages ("a string", "a dictionary").
std::string kindOf(PVTypeRef value);

}  // namespace tarnwick
