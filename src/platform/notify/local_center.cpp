// The process's notification center: observers by name, synchronous posts.
//
// Observers are called without the center's lock held, from a snapshot of
// the registrations, so an observer may add or remove observers (or post)
// while it runs.
#include <mutex>
#include <string>
#include <vector>

#include "platform/guard/guarded.hpp"
#include "platform/testing/capture.hpp"
#include "tarnwick/platform/notify.h"

namespace {

struct Observer {
  std::string name;
  NCObserverCallBack callback;
  void *context;
};

std::mutex centerMutex;
std::vector<Observer> &observers() {
  static auto *registered = new std::vector<Observer>;  // outlives static destruction
  return *registered;
}

}  // namespace

extern "C" {

Boolean NCLocalCenterAddObserver(PVStringRef name, NCObserverCallBack callback,
                                 void *context) noexcept {
  const char *text = PVStringGetCStringPtr(name);
  if (!text || !callback) return false;
  return platform::guarded([&]() -> Boolean {
    std::lock_guard lock(centerMutex);
    observers().push_back({text, callback, context});
    return true;
  });
}

void NCLocalCenterRemoveObserver(PVStringRef name, NCObserverCallBack callback,
                                 void *context) noexcept {
  const char *text = PVStringGetCStringPtr(name);
  if (!text) return;
  std::lock_guard lock(centerMutex);
  std::erase_if(observers(), [&](const Observer &o) {
    return o.name == text && o.callback == callback && o.context == context;
  });
}

void NCLocalCenterPost(PVStringRef name) noexcept {
  const char *text = PVStringGetCStringPtr(name);
  if (!text) return;
  pt::captureNotification(text, false);
  std::vector<Observer> called;
  bool listed = platform::guarded([&] {
    std::lock_guard lock(centerMutex);
    for (const Observer &o : observers()) {
      if (o.name == text) called.push_back(o);
    }
    return true;
  });
  if (!listed) return;
  for (const Observer &o : called) o.callback(name, o.context);
}

}  // extern "C"
