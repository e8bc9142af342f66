// A service's live connection in NetworkManager: the active connection of
// the connection Tarnwick made for it (found by its name-based UUID), read,
// started and stopped. What the platform's connection controller does when
// the engine is on.
//
// Every failure is a zn::Failure: kZNStatusNoEngine when NetworkManager
// cannot be reached or stops answering, kZNStatusEngineRefused when it
// refuses; failure() then says why in words.
#pragma once

#include <systemd/sd-bus.h>

#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "platform/engine/choice.hpp"

namespace engine {

class LiveConnection {
 public:
  // `choice` names NetworkManager; its bus is null when it is out of reach.
  LiveConnection(Choice choice, const std::string &serviceId);
  ~LiveConnection();
  LiveConnection(const LiveConnection &) = delete;
  LiveConnection &operator=(const LiveConnection &) = delete;

  int status();
  // Asks NetworkManager to activate the connection, and returns once it
  // has taken the request.
  void start();
  // Deactivates every active connection of the service, and waits (a few
  // seconds at most) until NetworkManager has torn them down.
  void stop();
  // Why the last operation failed, or why a connection it started ended
  // other than on request; "" when none of these happened.
  std::string failure();

 private:
  Bus &bus();
  // Runs the state-change handler on the signals received so far.
  void dispatchSignals();
  static int onVpnStateChanged(sd_bus_message *message, void *self, sd_bus_error *error);
  [[noreturn]] void failWith(int code, std::string why);

  std::mutex mutex_;
  Choice choice_;
  const std::string uuid_;
  sd_bus_slot *stateChanges_ = nullptr;  // matched from the first start on
  std::set<std::string> started_;        // active connections this controller started
  std::string failure_;
  int failureTelling_ = 0;  // how much the ending heard says: 0 none, up to 3
};

// The status of each service's live connection, read at once.
std::vector<int> liveStatuses(Choice &choice, const std::vector<std::string> &serviceIds);

}  // namespace engine
