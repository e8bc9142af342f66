// tarnwick: the command-line tool over libtarnwick.
#include <malloc.h>

#include "command_line.hpp"

int main(int argc, char **argv) {
  // A command makes and drops a session's objects by the thousand on a
  // large store. glibc keeps small freed blocks apart and merges them all
  // at the next large request, over and over: a fifth of an install's CPU
  // into 10,000 services. Without those lists a freed block merges at once.
  mallopt(M_MXFAST, 0);
  return tarnwick::runCommandLine(argc, argv);
}
