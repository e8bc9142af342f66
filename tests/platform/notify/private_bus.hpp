// A private D-Bus daemon for one test, and a listener on it.
#pragma once

#include <sys/types.h>
#include <systemd/sd-bus.h>

#include <string>
#include <vector>

namespace tw::test {

class PrivateBus {
 public:
  // Starts dbus-daemon listening on a socket under `directory`; address()
  // is empty when it could not be started.
  explicit PrivateBus(const std::string &directory);
  ~PrivateBus();
  PrivateBus(const PrivateBus &) = delete;
  PrivateBus &operator=(const PrivateBus &) = delete;

  const std::string &address() const { return address_; }

 private:
  pid_t daemon_ = -1;
  std::string address_;
};

// A client of the bus that collects the names of the Posted signals.
class PostedListener {
 public:
  explicit PostedListener(const std::string &address);
  ~PostedListener();
  PostedListener(const PostedListener &) = delete;
  PostedListener &operator=(const PostedListener &) = delete;

  bool listening() const { return listening_; }
  // Waits until `count` names have arrived or `patience` ran out; the names
  // received so far.
  std::vector<std::string> receive(size_t count, int patienceMilliseconds);

 private:
  static int onSignal(sd_bus_message *message, void *context, sd_bus_error *);
  sd_bus *bus_ = nullptr;
  bool listening_ = false;
  std::vector<std::string> names_;
};

}  // namespace tw::test
