// Printing results: JSON for scripts, aligned tables and fields for people.
#pragma once

#include <string>
#include <vector>

#include "values.hpp"

namespace tarnwick {

// Pretty-printed, one value, to standard output.
void printJson(const Json &json);

// Columns padded to their widest cell, a header row first.
void printTable(const std::vector<std::string> &header,
                const std::vector<std::vector<std::string>> &rows);

// An object's members as "key  value" lines, nested objects indented
// under their key; `indent` spaces before each line.
void printFields(const Json &object, size_t indent = 0);

}  // namespace tarnwick
