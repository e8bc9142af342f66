#include "platform/notify/private_bus.hpp"

#include <signal.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>

namespace tw::test {

PrivateBus::PrivateBus(const std::string &directory) {
  std::string address = "unix:path=" + directory + "/bus";
  int ready[2];
  if (pipe(ready) != 0) return;
  daemon_ = fork();
  if (daemon_ == 0) {
    dup2(ready[1], STDOUT_FILENO);
    close(ready[0]);
    execlp("dbus-daemon", "dbus-daemon", "--session", "--nofork", "--nopidfile",
           ("--address=" + address).c_str(), "--print-address", static_cast<char *>(nullptr));
    _exit(127);
  }
  close(ready[1]);
  // The daemon prints its address once it listens.
  char line[512] = {};
  FILE *out = fdopen(ready[0], "r");
  if (out && std::fgets(line, sizeof line, out)) address_ = address;
  if (out) std::fclose(out);
}

PrivateBus::~PrivateBus() {
  if (daemon_ <= 0) return;
  kill(daemon_, SIGTERM);
  waitpid(daemon_, nullptr, 0);
}

PostedListener::PostedListener(const std::string &address) {
  if (sd_bus_new(&bus_) < 0) return;
  listening_ = sd_bus_set_address(bus_, address.c_str()) >= 0 &&
               sd_bus_set_bus_client(bus_, 1) >= 0 && sd_bus_start(bus_) >= 0 &&
               sd_bus_add_match(bus_, nullptr,
                                "type='signal',interface='org.tarnwick.Notifications',"
                                "member='Posted',path='/org/tarnwick/Notifications'",
                                onSignal, this) >= 0;
  // The match is in force once the bus has answered AddMatch: a round trip.
  if (listening_)
    listening_ = sd_bus_call_method(bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                    "org.freedesktop.DBus", "GetId", nullptr, nullptr, "") >= 0;
}

PostedListener::~PostedListener() { sd_bus_flush_close_unref(bus_); }

int PostedListener::onSignal(sd_bus_message *message, void *context, sd_bus_error *) {
  const char *name = nullptr;
  if (sd_bus_message_read(message, "s", &name) >= 0 && name) {
    static_cast<PostedListener *>(context)->names_.push_back(name);
  }
  return 0;
}

std::vector<std::string> PostedListener::receive(size_t count, int patienceMilliseconds) {
  auto deadline =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(patienceMilliseconds);
  while (names_.size() < count && std::chrono::steady_clock::now() < deadline) {
    int r = sd_bus_process(bus_, nullptr);
    if (r < 0) break;
    if (r == 0) sd_bus_wait(bus_, 50'000);
  }
  return names_;
}

}  // namespace tw::test
