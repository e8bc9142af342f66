// Call counts and planned failures for the testing interface.
#include <map>
#include <mutex>
#include <string>

#include "platform/support/fault.hpp"
#include "tarnwick/platform/testing.h"

namespace {

struct State {
  std::mutex mutex;
  std::map<std::string, long, std::less<>> calls;
  std::map<std::string, long, std::less<>> failAt;  // absolute call number to fail
  long cofferCalls = 0;
  long cofferWrites = 0;
};

State &state() {
  static State *s = new State;  // never destroyed: usable during static destruction
  return *s;
}

}  // namespace

namespace pt {

bool enter(const char *operation, Family family) {
  State &s = state();
  std::lock_guard lock(s.mutex);
  if (family != Family::Preferences) ++s.cofferCalls;
  if (family == Family::CofferWrite) ++s.cofferWrites;
  long n = ++s.calls[operation];
  auto planned = s.failAt.find(operation);
  if (planned == s.failAt.end() || planned->second != n) return false;
  s.failAt.erase(planned);
  return true;
}

}  // namespace pt

extern "C" {

void PTReset(void) noexcept {
  State &s = state();
  std::lock_guard lock(s.mutex);
  s.calls.clear();
  s.failAt.clear();
  s.cofferCalls = 0;
  s.cofferWrites = 0;
}

void PTFailNthCall(const char *operation, long nth) noexcept {
  if (!operation || nth < 1) return;
  State &s = state();
  std::lock_guard lock(s.mutex);
  auto it = s.calls.find(operation);
  long done = it == s.calls.end() ? 0 : it->second;
  s.failAt[operation] = done + nth;
}

long PTCallCount(const char *operation) noexcept {
  if (!operation) return 0;
  State &s = state();
  std::lock_guard lock(s.mutex);
  auto it = s.calls.find(operation);
  return it == s.calls.end() ? 0 : it->second;
}

long PTCofferWriteCount(void) noexcept {
  State &s = state();
  std::lock_guard lock(s.mutex);
  return s.cofferWrites;
}

long PTCofferCallCount(void) noexcept {
  State &s = state();
  std::lock_guard lock(s.mutex);
  return s.cofferCalls;
}

}  // extern "C"
