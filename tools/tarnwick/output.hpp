// Printing results: JSON for scripts, aligned tables and fields for people.
//
// Every write to standard output is checked: output lost to a full disk or
// a closed file is a failure, never a silent success. Text meant for a
// terminal shows control characters escaped, so that a name cannot move the
// cursor or recolour the screen, and lines up by display width.
#pragma once

#include <string>
#include <vector>

#include "values.hpp"

namespace tarnwick {

// Writes `text` to standard output; fails (exit 1) when it cannot.
void emit(const std::string &text);
// Flushes standard output; fails when what was written did not all reach it.
void finishOutput();

// Pretty-printed, one value.
void printJson(const Json &json);

// Columns padded to their widest cell (in display width), a header row first.
void printTable(const std::vector<std::string> &header,
                const std::vector<std::vector<std::string>> &rows);

// An object's members as "key  value" lines, nested objects and lists of
// objects indented under their key; `indent` spaces before each line.
void printFields(const Json &object, size_t indent = 0);

// A note on standard error: "tarnwick: TEXT", escaped.
void note(const std::string &text);

// `text` with control characters (C0, DEL, C1) and invalid UTF-8 written as
// escapes (\n, \t, \e, \xHH, \u{HHHH}); a backslash stays as it is.
std::string shown(const std::string &text);

// The columns `text` takes on a terminal, as shown.
size_t displayWidth(const std::string &text);

}  // namespace tarnwick
