// Call counts, planned failures and captures for the testing interface.
#include "tarnwick/platform/testing.h"

#include <signal.h>

#include <atomic>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

#include "platform/guard/guarded.hpp"
#include "platform/testing/capture.hpp"
#include "platform/testing/fault.hpp"

namespace {

// One operation's calls, and the call numbers planned to fail and to stop
// the process (0: none).
struct Counter {
  std::atomic<long> calls{0};
  std::atomic<long> failAt{0};
  std::atomic<long> stopAt{0};
};

// True for the one call that claims the plan `at`.
bool claims(std::atomic<long> &at, long call) {
  long planned = at.load(std::memory_order_relaxed);
  return planned == call && at.compare_exchange_strong(planned, 0);
}

struct State {
  std::mutex mutex;
  // Counters are never erased, only zeroed, so pointers to them stay valid.
  std::map<std::string, Counter, std::less<>> counters;
  std::atomic<long> cofferCalls{0};
  std::atomic<long> cofferWrites{0};

  // A deque keeps the texts in place as more are captured, so the pointers
  // handed out stay valid until the next reset or start.
  struct Message {
    int level;
    std::string text;
  };
  struct Post {
    std::string name;
    bool systemWide;
  };
  bool capturing = false;
  std::deque<Message> messages;
  std::deque<Post> posts;

  void clearCapture() {
    messages.clear();
    posts.clear();
  }
};

State &state() {
  static State *s = new State;  // never destroyed: usable during static destruction
  return *s;
}

Counter &counterNamed(State &s, std::string_view name) {
  std::lock_guard lock(s.mutex);
  auto found = s.counters.find(name);
  if (found == s.counters.end()) found = s.counters.try_emplace(std::string(name)).first;
  return found->second;
}

// Every platform call passes here, so the counter is found by the name's
// address (a string of static storage) in a per-thread cache, without a
// lock or a string comparison.
Counter &counterAt(State &s, const char *operation) {
  thread_local std::unordered_map<const char *, Counter *> cache;
  Counter *&cached = cache[operation];
  if (!cached) cached = &counterNamed(s, operation);
  return *cached;
}

}  // namespace

namespace pt {

bool enter(const char *operation, Family family) {
  State &s = state();
  if (family != Family::Preferences) s.cofferCalls.fetch_add(1, std::memory_order_relaxed);
  if (family == Family::CofferWrite) s.cofferWrites.fetch_add(1, std::memory_order_relaxed);
  Counter &counter = counterAt(s, operation);
  long n = counter.calls.fetch_add(1, std::memory_order_relaxed) + 1;
  // Stopped here, the process goes on where it was if it is ever continued.
  if (claims(counter.stopAt, n)) raise(SIGSTOP);
  return claims(counter.failAt, n);
}

void captureLog(int level, const char *text) {
  State &s = state();
  std::lock_guard lock(s.mutex);
  if (!s.capturing) return;
  platform::guarded([&] { s.messages.push_back({level, text}); });
}

void captureNotification(const char *name, bool systemWide) {
  State &s = state();
  std::lock_guard lock(s.mutex);
  if (!s.capturing) return;
  platform::guarded([&] { s.posts.push_back({name, systemWide}); });
}

}  // namespace pt

extern "C" {

void PTReset(void) noexcept {
  State &s = state();
  std::lock_guard lock(s.mutex);
  for (auto &[name, counter] : s.counters) {
    counter.calls = 0;
    counter.failAt = 0;
    counter.stopAt = 0;
  }
  s.cofferCalls = 0;
  s.cofferWrites = 0;
  s.capturing = false;
  s.clearCapture();
}

void PTFailNthCall(const char *operation, long nth) noexcept {
  if (!operation || nth < 1) return;
  Counter &counter = counterNamed(state(), operation);
  counter.failAt = counter.calls + nth;
}

void PTStopAtNthCall(const char *operation, long nth) noexcept {
  if (!operation || nth < 1) return;
  Counter &counter = counterNamed(state(), operation);
  counter.stopAt = counter.calls + nth;
}

long PTCallCount(const char *operation) noexcept {
  if (!operation) return 0;
  return counterNamed(state(), operation).calls;
}

long PTCofferWriteCount(void) noexcept { return state().cofferWrites; }

long PTCofferCallCount(void) noexcept { return state().cofferCalls; }

void PTCaptureStart(void) noexcept {
  State &s = state();
  std::lock_guard lock(s.mutex);
  s.clearCapture();
  s.capturing = true;
}

long PTLogMessageCount(void) noexcept {
  State &s = state();
  std::lock_guard lock(s.mutex);
  return static_cast<long>(s.messages.size());
}

int PTLogMessageLevel(long index) noexcept {
  State &s = state();
  std::lock_guard lock(s.mutex);
  if (index < 0 || index >= static_cast<long>(s.messages.size())) return -2;
  return s.messages[static_cast<size_t>(index)].level;
}

const char *PTLogMessageText(long index) noexcept {
  State &s = state();
  std::lock_guard lock(s.mutex);
  if (index < 0 || index >= static_cast<long>(s.messages.size())) return nullptr;
  return s.messages[static_cast<size_t>(index)].text.c_str();
}

long PTNotificationCount(void) noexcept {
  State &s = state();
  std::lock_guard lock(s.mutex);
  return static_cast<long>(s.posts.size());
}

const char *PTNotificationName(long index) noexcept {
  State &s = state();
  std::lock_guard lock(s.mutex);
  if (index < 0 || index >= static_cast<long>(s.posts.size())) return nullptr;
  return s.posts[static_cast<size_t>(index)].name.c_str();
}

Boolean PTNotificationIsSystemWide(long index) noexcept {
  State &s = state();
  std::lock_guard lock(s.mutex);
  if (index < 0 || index >= static_cast<long>(s.posts.size())) return false;
  return s.posts[static_cast<size_t>(index)].systemWide;
}

}  // extern "C"
