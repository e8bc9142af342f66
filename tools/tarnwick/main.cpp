// tarnwick: the command-line tool over libtarnwick.
#include "command_line.hpp"

int main(int argc, char **argv) { return tarnwick::runCommandLine(argc, argv); }
