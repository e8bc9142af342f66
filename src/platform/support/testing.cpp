// Call counts, planned failures and captures for the testing interface.
#include "tarnwick/platform/testing.h"

#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/support/capture.hpp"
#include "platform/support/fault.hpp"

namespace {

struct State {
  std::mutex mutex;
  std::map<std::string, long, std::less<>> calls;
  std::map<std::string, long, std::less<>> failAt;  // absolute call number to fail
  long cofferCalls = 0;
  long cofferWrites = 0;

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

}  // namespace

namespace pt {

bool enter(const char *operation, Family family) {
  State &s = state();
  std::lock_guard lock(s.mutex);
  if (family != Family::Preferences) ++s.cofferCalls;
  if (family == Family::CofferWrite) ++s.cofferWrites;
  // Found without making a std::string: every platform call passes here.
  auto counted = s.calls.find(std::string_view(operation));
  if (counted == s.calls.end()) counted = s.calls.emplace(operation, 0).first;
  long n = ++counted->second;
  auto planned = s.failAt.find(operation);
  if (planned == s.failAt.end() || planned->second != n) return false;
  s.failAt.erase(planned);
  return true;
}

void captureLog(int level, const char *text) {
  State &s = state();
  std::lock_guard lock(s.mutex);
  if (!s.capturing) return;
  try {
    s.messages.push_back({level, text});
  } catch (...) {
  }
}

void captureNotification(const char *name, bool systemWide) {
  State &s = state();
  std::lock_guard lock(s.mutex);
  if (!s.capturing) return;
  try {
    s.posts.push_back({name, systemWide});
  } catch (...) {
  }
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
  s.capturing = false;
  s.clearCapture();
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
