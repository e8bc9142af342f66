#include "platform/engine/live_connection.hpp"

#include <chrono>
#include <thread>

#include "platform/engine/active_connections.hpp"
#include "platform/engine/name_uuid.hpp"
#include "platform/engine/network_manager.hpp"
#include "platform/prefs/error.hpp"

namespace engine {
namespace {

// NMActiveConnectionStateReason: UNKNOWN and NONE say nothing,
// USER_DISCONNECTED is an ending asked for.
constexpr uint32_t kReasonNone = 1;
constexpr uint32_t kReasonUserDisconnected = 2;

// How long a stop waits for NetworkManager to tear the connection down,
// and how often it looks.
constexpr std::chrono::milliseconds kStopWait{5000};
constexpr std::chrono::milliseconds kStopPoll{20};

}  // namespace

LiveConnection::LiveConnection(Choice choice, const std::string &serviceId)
    : choice_(std::move(choice)), uuid_(nameUuid(serviceId)) {}

LiveConnection::~LiveConnection() { sd_bus_slot_unref(stateChanges_); }

void LiveConnection::failWith(int code, std::string why) {
  failure_ = std::move(why);
  zn::fail(code);
}

Bus &LiveConnection::bus() {
  if (!choice_.bus) {
    failWith(kZNStatusNoEngine, choice_.problem.empty()
                                    ? "NetworkManager cannot be reached on the system bus"
                                    : choice_.problem);
  }
  return *choice_.bus;
}

int LiveConnection::onVpnStateChanged(sd_bus_message *message, void *self, sd_bus_error *) {
  auto &live = *static_cast<LiveConnection *>(self);
  const char *path = sd_bus_message_get_path(message);
  uint32_t state = 0;
  uint32_t reason = 0;
  if (!path || !live.started_.contains(path) ||
      sd_bus_message_read(message, "uu", &state, &reason) < 0) {
    return 0;
  }
  if ((state != kVpnFailed && state != kVpnDisconnected) || reason == kReasonUserDisconnected) {
    return 0;
  }
  // A plugin that fails makes NetworkManager say so in more than one way,
  // in an order that varies (FAILED with no reason; DISCONNECTED because
  // the service stopped, then FAILED because it failed to start): the most
  // telling is kept.
  int telling = reason <= kReasonNone ? 1 : state == kVpnDisconnected ? 2 : 3;
  if (telling >= live.failureTelling_) {
    live.failureTelling_ = telling;
    live.failure_ = "NetworkManager ended it " + reasonText(reason);
  }
  return 0;
}

void LiveConnection::dispatchSignals() {
  if (!stateChanges_) return;
  // Only queued messages are handled: a status read never waits here.
  while (sd_bus_process(bus().get(), nullptr) > 0) {
  }
}

int LiveConnection::status() {
  std::lock_guard locked(mutex_);
  try {
    dispatchSignals();
    auto actives = readActiveConnections(bus());
    auto found = actives.find(uuid_);
    return found == actives.end() ? kZNNetworkConnectionDisconnected : liveStatus(found->second);
  } catch (const BusError &error) {
    failWith(kZNStatusNoEngine, std::string("NetworkManager stopped answering: ") + error.what());
  }
}

void LiveConnection::start() {
  std::lock_guard locked(mutex_);
  try {
    if (!stateChanges_) {
      // Matched before activating, so that no change is missed.
      check(
          sd_bus_match_signal(bus().get(), &stateChanges_, kNetworkManagerName, nullptr,
                              kVpnConnectionInterface, "VpnStateChanged", onVpnStateChanged, this),
          "VpnStateChanged");
    }
    std::optional<std::string> connection = NetworkManager(bus()).connectionByUuid(uuid_);
    if (!connection) {
      failWith(kZNStatusEngineRefused,
               "NetworkManager holds no connection for the service: no plugin can express it, "
               "or the store was not applied since it was made");
    }
    std::string active = activate(bus(), *connection);
    started_.insert(active);
    failure_.clear();
    failureTelling_ = 0;
  } catch (const BusError &error) {
    if (error.transport()) {
      failWith(kZNStatusNoEngine, std::string("NetworkManager stopped answering: ") + error.what());
    }
    failWith(kZNStatusEngineRefused,
             std::string("NetworkManager refused to activate it: ") + error.what());
  }
}

void LiveConnection::stop() {
  std::lock_guard locked(mutex_);
  try {
    auto actives = readActiveConnections(bus());
    auto found = actives.find(uuid_);
    if (found == actives.end()) return;
    for (const ActiveConnection &active : found->second) {
      try {
        deactivate(bus(), active.path);
      } catch (const BusError &error) {
        // One that went down meanwhile is not active any more: fine.
        if (error.transport()) throw;
        if (error.name() != "org.freedesktop.NetworkManager.ConnectionNotActive" &&
            !error.objectGone()) {
          failWith(kZNStatusEngineRefused,
                   std::string("NetworkManager refused to deactivate it: ") + error.what());
        }
      }
    }
    const auto deadline = std::chrono::steady_clock::now() + kStopWait;
    while (std::chrono::steady_clock::now() < deadline) {
      actives = readActiveConnections(bus());
      found = actives.find(uuid_);
      if (found == actives.end() || liveStatus(found->second) == kZNNetworkConnectionDisconnected) {
        return;
      }
      std::this_thread::sleep_for(kStopPoll);
    }
  } catch (const BusError &error) {
    failWith(kZNStatusNoEngine, std::string("NetworkManager stopped answering: ") + error.what());
  }
}

std::string LiveConnection::failure() {
  std::lock_guard locked(mutex_);
  try {
    dispatchSignals();
  } catch (...) {
    // What was heard before the engine went away still stands.
  }
  return failure_;
}

std::vector<int> liveStatuses(Choice &choice, const std::vector<std::string> &serviceIds) {
  if (!choice.bus) zn::fail(kZNStatusNoEngine);
  std::unordered_map<std::string, std::vector<ActiveConnection>> actives;
  try {
    actives = readActiveConnections(*choice.bus);
  } catch (const BusError &) {
    zn::fail(kZNStatusNoEngine);
  }
  std::vector<int> statuses;
  statuses.reserve(serviceIds.size());
  for (const std::string &id : serviceIds) {
    auto found = actives.find(nameUuid(id));
    statuses.push_back(found == actives.end() ? kZNNetworkConnectionDisconnected
                                              : liveStatus(found->second));
  }
  return statuses;
}

}  // namespace engine
