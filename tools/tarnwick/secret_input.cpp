#include "secret_input.hpp"

#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

#include "failure.hpp"

namespace tarnwick {
namespace {

// Turns the terminal's echo off for its lifetime.
class EchoOff {
 public:
  EchoOff() : active_(tcgetattr(STDIN_FILENO, &saved_) == 0) {
    if (!active_) return;
    termios quiet = saved_;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
  }
  ~EchoOff() {
    if (active_) tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved_);
  }
  EchoOff(const EchoOff &) = delete;
  EchoOff &operator=(const EchoOff &) = delete;

 private:
  termios saved_{};
  bool active_;
};

}  // namespace

std::string readSecret(const std::string &prompt) {
  std::string line;
  if (isatty(STDIN_FILENO)) {
    std::fprintf(stderr, "%s: ", prompt.c_str());
    std::fflush(stderr);
    {
      EchoOff quiet;
      std::getline(std::cin, line);
    }
    std::fprintf(stderr, "\n");
  } else {
    std::getline(std::cin, line);
  }
  // A line from a file written on another system ends in CR LF.
  while (!line.empty() && (line.back() == '\r' || line.back() == '\n')) line.pop_back();
  if (line.empty()) throw Failure(Exit::usage, "no secret given (" + prompt + ")");
  return line;
}

}  // namespace tarnwick
