// The system-wide notification center: one D-Bus signal per post.
//
// One connection per process and bus address, made at the first post and
// kept. A post queues the signal and flushes it within a short budget
// without waiting for any reply; when the bus cannot be reached, or the
// budget runs out, the post is dropped and the connection forgotten, so the
// next post tries afresh. A forked child never touches its parent's
// connection (sd-bus refuses use after fork): it makes its own.
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <chrono>
#include <mutex>
#include <string>

#include "platform/dbus/system_bus.hpp"
#include "platform/guard/guarded.hpp"
#include "platform/testing/capture.hpp"
#include "tarnwick/platform/notify.h"

namespace {

constexpr char kPath[] = "/org/tarnwick/Notifications";
constexpr char kInterface[] = "org.tarnwick.Notifications";
constexpr char kMember[] = "Posted";
// Long enough for a bus under load, short enough that a caller never notices.
constexpr std::chrono::milliseconds kFlushBudget{250};

struct Connection {
  sd_bus *bus = nullptr;
  std::string address;
  pid_t owner = 0;
};

std::mutex connectionMutex;
Connection connection;

void forget() {
  // In a child the handle is the parent's: leave it alone.
  if (connection.bus && connection.owner == getpid()) sd_bus_close_unref(connection.bus);
  connection = {};
}

sd_bus *connect(const std::string &address) {
  if (connection.bus && connection.owner == getpid() && connection.address == address) {
    return connection.bus;
  }
  forget();
  if (!platform::busMayAnswer(address)) return nullptr;
  sd_bus *bus = nullptr;
  if (sd_bus_new(&bus) < 0) return nullptr;
  if (sd_bus_set_address(bus, address.c_str()) < 0 || sd_bus_set_bus_client(bus, 1) < 0 ||
      sd_bus_start(bus) < 0) {
    sd_bus_unref(bus);
    return nullptr;
  }
  connection = {bus, address, getpid()};
  return bus;
}

// Writes out everything queued, within the budget.
bool flush(sd_bus *bus) {
  auto deadline = std::chrono::steady_clock::now() + kFlushBudget;
  for (;;) {
    int progress = sd_bus_process(bus, nullptr);
    if (progress < 0) return false;
    uint64_t queued = 0;
    if (sd_bus_get_n_queued_write(bus, &queued) < 0) return false;
    if (queued == 0) return true;
    if (progress > 0) continue;
    auto left = std::chrono::duration_cast<std::chrono::microseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return false;
    if (sd_bus_wait(bus, static_cast<uint64_t>(left.count())) < 0) return false;
  }
}

}  // namespace

extern "C" {

void NCSystemCenterPost(PVStringRef name, Boolean /*deliverImmediately*/) noexcept {
  const char *text = PVStringGetCStringPtr(name);
  if (!text) return;
  pt::captureNotification(text, true);
  platform::guarded([&] {
    std::lock_guard lock(connectionMutex);
    sd_bus *bus = connect(platform::systemBusAddress());
    if (!bus) return;
    if (sd_bus_emit_signal(bus, kPath, kInterface, kMember, "s", text) < 0 || !flush(bus)) {
      forget();
    }
  });
}

}  // extern "C"
