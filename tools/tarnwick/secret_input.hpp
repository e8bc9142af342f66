// Secrets come from standard input or the terminal, never from the command
// line (where any process could read them in /proc).
#pragma once

#include <string>

namespace tarnwick {

// One line of standard input without its line ending (LF or CR LF) when
// it is not a terminal; else the answer to `prompt` on the terminal, typed with echo
// off. An empty answer is a usage failure.
std::string readSecret(const std::string &prompt);

}  // namespace tarnwick
