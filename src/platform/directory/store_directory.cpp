// The process's store directory: where sessions open by default and where
// the Coffer and the connection registry live.
#include <unistd.h>

#include <cstdlib>
#include <mutex>
#include <string>

#include "platform/guard/guarded.hpp"
#include "tarnwick/platform/prefs.h"

namespace {

std::mutex directoryMutex;
std::string *chosen = nullptr;  // set by ZNStoreSetDirectory; never freed while in use
std::string *fallback = nullptr;

std::string defaultDirectory() {
  if (const char *env = std::getenv("TARNWICK_STORE"); env && *env) return env;
  if (geteuid() == 0) return "/var/lib/tarnwick";
  if (const char *state = std::getenv("XDG_STATE_HOME"); state && *state) {
    return std::string(state) + "/tarnwick";
  }
  const char *home = std::getenv("HOME");
  return std::string(home && *home ? home : ".") + "/.local/state/tarnwick";
}

}  // namespace

extern "C" {

const char *ZNStoreGetDirectory(void) noexcept {
  std::lock_guard lock(directoryMutex);
  return platform::guarded([&]() -> const char * {
    if (chosen) return chosen->c_str();
    if (!fallback) fallback = new std::string(defaultDirectory());
    return fallback->c_str();
  });
}

void ZNStoreSetDirectory(const char *path) noexcept {
  std::lock_guard lock(directoryMutex);
  platform::guarded([&] {
    // The previous text stays valid for one more change: a caller may still
    // hold the pointer the getter gave it.
    static std::string *retired = nullptr;
    delete retired;
    retired = chosen;
    chosen = path ? new std::string(path) : nullptr;
  });
}

}  // extern "C"
