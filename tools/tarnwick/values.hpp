// Property values ⇄ JSON for the payload files, the JSON output and the
// table output, on the platform's one conversion (tarnwick/platform/json.h).
// The tool's part is its policy for {"$file": "relative/path"}: the bytes
// of a file, read relative to the payload file's directory.
#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "tarnwick/platform/ref.hpp"
#include "tarnwick/platform/values.h"

namespace tarnwick {

using Json = nlohmann::ordered_json;

// Where a JSON value comes from, for "$file" and for error messages.
struct JsonSource {
  std::string name;                 // the file name, or "VALUE" for the command line
  std::filesystem::path directory;  // "$file" paths are relative to it
};

// The property value JSON text stands for. Text that is not JSON is a
// malformed payload "NAME:LINE:COLUMN: what" (or, when `notJson` is given,
// sets it and gives null); JSON that is no property value (null, a bad
// "$data", an unreadable "$file") is a malformed payload "NAME at PATH: what".
pv::Ref<PVTypeRef> valueFromJsonText(const std::string &text, const JsonSource &source,
                                     bool *notJson = nullptr);

// The JSON for a value; dictionaries with their keys sorted, so that two
// outputs of equal values are equal text.
Json jsonFromValue(PVTypeRef value);

// True for {"$data": "<base64>"}, the JSON of a data value.
bool isDataJson(const Json &json);

// The one-line text a table shows for a value, with no JSON syntax: a
// string bare, data as "<N bytes>", a list as its items joined by ", ",
// a dictionary as "key=value" pairs, "(empty)" for an empty one.
std::string tableText(const Json &json);
std::string tableText(PVTypeRef value);

// The text of a string value ("" for anything else).
std::string textOf(PVTypeRef value);
// The bytes of a data value ("" for anything else).
std::string bytesOf(PVTypeRef value);
// A new string made from UTF-8 text; throws on invalid UTF-8.
pv::Ref<PVStringRef> makeString(const std::string &utf8);

// The kind of a value in words, for messages ("a string", "a dictionary").
std::string kindOf(PVTypeRef value);

}  // namespace tarnwick
