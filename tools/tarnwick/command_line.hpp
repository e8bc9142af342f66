// The command line: every command and option, --help text with the exit
// codes, and the mapping of every failure to its exit code.
#pragma once

namespace tarnwick {

// Parses argv, runs the command, and returns the process's exit code.
// Nothing escapes: each failure is one "tarnwick: " line on stderr.
int runCommandLine(int argc, char **argv);

}  // namespace tarnwick
