#include "platform/engine/agent.hpp"

#include <pthread.h>
#include <signal.h>
#include <systemd/sd-event.h>

#include <cstring>
#include <exception>

#include "platform/dbus/system_bus.hpp"
#include "platform/engine/choice.hpp"
#include "platform/engine/network_manager.hpp"
#include "platform/engine/settings_message.hpp"
#include "platform/prefs/error.hpp"

namespace engine {
namespace {

constexpr char kAgentPath[] = "/org/freedesktop/NetworkManager/SecretAgent";
constexpr char kAgentInterface[] = "org.freedesktop.NetworkManager.SecretAgent";
constexpr char kAgentManagerPath[] = "/org/freedesktop/NetworkManager/AgentManager";
constexpr char kAgentManagerInterface[] = "org.freedesktop.NetworkManager.AgentManager";
constexpr char kOwnerChanges[] =
    "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
    "interface='org.freedesktop.DBus',member='NameOwnerChanged',"
    "arg0='org.freedesktop.NetworkManager'";

constexpr char kPermissionDenied[] = "org.freedesktop.NetworkManager.SecretAgent.PermissionDenied";
constexpr char kNoSecrets[] = "org.freedesktop.NetworkManager.SecretAgent.NoSecrets";
constexpr char kFailed[] = "org.freedesktop.NetworkManager.SecretAgent.Failed";

// NMSecretAgentGetSecretsFlags REQUEST_NEW: the secrets given before were
// refused, and the user is to be asked for others.
constexpr uint32_t kRequestNew = 0x2;

// A registration NetworkManager did not take is asked for again this often.
constexpr uint64_t kRegisterRetryMicroseconds = 2'000'000;

// SIGTERM and SIGINT blocked on the calling thread, so that the event loop
// receives them, for as long as it runs.
class StopSignals {
 public:
  StopSignals() {
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    sigaddset(&stop, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stop, &previous_);
  }
  ~StopSignals() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
  StopSignals(const StopSignals &) = delete;
  StopSignals &operator=(const StopSignals &) = delete;

 private:
  sigset_t previous_;
};

std::string quoted(const std::string &text) { return "\"" + text + "\""; }

bool notReady(const char *errorName) {
  for (const char *name :
       {"org.freedesktop.DBus.Error.ServiceUnknown", "org.freedesktop.DBus.Error.NameHasNoOwner",
        "org.freedesktop.DBus.Error.UnknownObject", "org.freedesktop.DBus.Error.UnknownInterface",
        "org.freedesktop.DBus.Error.UnknownMethod", "org.freedesktop.DBus.Error.NoReply",
        "org.freedesktop.DBus.Error.Timeout", "org.freedesktop.DBus.Error.TimedOut"}) {
    if (errorName && std::strcmp(errorName, name) == 0) return true;
  }
  return false;
}

}  // namespace

// What one run holds: the bus, the loop and what it knows of NetworkManager.
struct SecretAgent::Loop {
  explicit Loop(const SecretAgent &agent)
      : agent(agent), bus(platform::systemBusAddress(), kCallTimeout) {}
  ~Loop() {
    for (sd_bus_slot *slot : {object, ownerChanges, registration}) sd_bus_slot_unref(slot);
    sd_event_source_unref(retry);
    sd_bus_detach_event(bus.get());
    sd_event_unref(event);
  }
  Loop(const Loop &) = delete;
  Loop &operator=(const Loop &) = delete;

  void note(const std::string &text) const {
    try {
      agent.note_(text);
    } catch (...) {
      // Saying what happened never stops the agent.
    }
  }

  // --- NetworkManager comes, goes and comes back ---------------------------

  void managerIs(const std::string &owner) {
    sd_bus_slot_unref(std::exchange(registration, nullptr));
    sd_event_source_unref(std::exchange(retry, nullptr));
    registered = false;
    manager = owner;
    if (manager.empty()) {
      note("NetworkManager is not on the bus; waiting for it");
      return;
    }
    registerWithManager();
  }

  void registerWithManager() {
    sd_bus_slot_unref(std::exchange(registration, nullptr));
    int r = sd_bus_call_method_async(
        bus.get(), &registration, kNetworkManagerName, kAgentManagerPath, kAgentManagerInterface,
        "RegisterWithCapabilities", onRegistered, this, "su", kAgentIdentifier, 0u);
    if (r < 0) {
      note(std::string("cannot ask NetworkManager to register the agent: ") + std::strerror(-r));
    }
  }

  static int onRegistered(sd_bus_message *reply, void *self, sd_bus_error *) {
    auto &loop = *static_cast<Loop *>(self);
    const sd_bus_error *error = sd_bus_message_get_error(reply);
    if (!error) {
      loop.registered = true;
      loop.note("registered with NetworkManager (" + loop.manager + ") as secret agent " +
                quoted(kAgentIdentifier));
      return 0;
    }
    std::string why = error->message ? error->message : error->name;
    // Not ready yet (its agent manager not on the bus, or no answer): asked
    // again. A refusal stands until NetworkManager restarts.
    if (!notReady(error->name)) {
      loop.note("NetworkManager refused to register the agent: " + why);
      return 0;
    }
    loop.note("NetworkManager did not register the agent yet: " + why);
    sd_event_add_time_relative(loop.event, &loop.retry, CLOCK_MONOTONIC, kRegisterRetryMicroseconds,
                               0, onRetry, self);
    return 0;
  }

  static int onRetry(sd_event_source *, uint64_t, void *self) {
    auto &loop = *static_cast<Loop *>(self);
    loop.retry = sd_event_source_unref(loop.retry);
    if (!loop.manager.empty() && !loop.registered) loop.registerWithManager();
    return 0;
  }

  static int onOwnerChanged(sd_bus_message *message, void *self, sd_bus_error *) {
    const char *name = nullptr;
    const char *previous = nullptr;
    const char *owner = nullptr;
    if (sd_bus_message_read(message, "sss", &name, &previous, &owner) < 0) return 0;
    auto &loop = *static_cast<Loop *>(self);
    if (std::strcmp(name, kNetworkManagerName) == 0 && loop.manager != owner) {
      loop.managerIs(owner);
    }
    return 0;
  }

  void unregister() {
    if (!registered || manager.empty()) return;
    try {
      bus.call(bus.newCall(kNetworkManagerName, kAgentManagerPath, kAgentManagerInterface,
                           "Unregister"));
      note("unregistered from NetworkManager");
    } catch (const BusError &error) {
      note(std::string("NetworkManager did not unregister the agent: ") + error.what());
    }
  }

  // --- What NetworkManager calls -------------------------------------------

  // True when the caller is NetworkManager; otherwise the call is refused.
  bool fromManager(sd_bus_message *call, const char *method) {
    const char *sender = sd_bus_message_get_sender(call);
    if (sender && !manager.empty() && manager == sender) return true;
    note(std::string("refused ") + method + " from " + (sender ? sender : "an unknown caller") +
         ": only NetworkManager is answered");
    sd_bus_reply_method_errorf(call, kPermissionDenied,
                               "only NetworkManager may call the secret agent");
    return false;
  }

  // Runs a method's body; whatever it throws becomes a D-Bus error.
  template <typename Body>
  static int answer(sd_bus_message *call, void *self, const char *method, Body body) {
    auto &loop = *static_cast<Loop *>(self);
    if (!loop.fromManager(call, method)) return 1;
    std::string why;
    try {
      return body(loop);
    } catch (const zn::Failure &failure) {
      why = std::string("the store cannot be read: ") + ZNErrorString(failure.code);
    } catch (const std::exception &error) {
      why = error.what();
    } catch (...) {
      why = "an unexpected failure";
    }
    loop.note(std::string(method) + " failed: " + why);
    return sd_bus_reply_method_errorf(call, kFailed, "%s failed: %s", method, why.c_str());
  }

  static int onGetSecrets(sd_bus_message *call, void *self, sd_bus_error *) {
    return answer(call, self, "GetSecrets", [&](Loop &loop) {
      ConnectionSettings connection = readSettings(call);
      const char *path = nullptr;
      const char *setting = nullptr;
      uint32_t flags = 0;
      check(sd_bus_message_read(call, "os", &path, &setting), "GetSecrets");
      check(sd_bus_message_skip(call, "as"), "GetSecrets");  // hints: every secret is given
      check(sd_bus_message_read(call, "u", &flags), "GetSecrets");
      const std::string *uuid = connection.findString("connection", "uuid");
      const std::string *id = connection.findString("connection", "id");
      std::string which = quoted(id ? *id : path) + " (" + (uuid ? *uuid : "no UUID") + ")";

      if (std::strcmp(setting, "vpn") != 0) {
        loop.note("no secrets for " + which + " setting " + setting +
                  ": only VPN secrets are given");
        return sd_bus_reply_method_errorf(call, kNoSecrets, "only VPN secrets are given here");
      }
      if (flags & kRequestNew) {
        loop.note("no new secrets for " + which +
                  ": NetworkManager asks for others than the stored ones, and only the Coffer "
                  "answers here");
        return sd_bus_reply_method_errorf(call, kNoSecrets,
                                          "no secrets other than the stored ones");
      }
      SecretAnswer answer =
          answerSecrets(loop.agent.directory_, uuid ? *uuid : "", loop.agent.source_);
      if (!answer.ours) {
        loop.note("no secrets for " + which + ": not a connection of this store's services");
        return sd_bus_reply_method_errorf(call, kNoSecrets,
                                          "not a connection of this agent's store");
      }
      std::string given;
      for (const auto &[name, secret] : answer.secrets) given += (given.empty() ? "" : ", ") + name;
      std::string missing;
      for (const auto &name : answer.missing) missing += (missing.empty() ? "" : ", ") + name;
      if (answer.secrets.empty()) {
        loop.note("no secrets for " + which + ": the Coffer holds none of " + missing);
        return sd_bus_reply_method_errorf(call, kNoSecrets, "the Coffer holds none of its secrets");
      }
      loop.note("gave " + which + " its " + given +
                (missing.empty() ? "" : "; the Coffer holds no " + missing));
      return replySecrets(call, answer);
    });
  }

  // {"vpn": {"secrets": {name: secret, ...}}}
  static int replySecrets(sd_bus_message *call, const SecretAnswer &answer) {
    sd_bus_message *reply = nullptr;
    check(sd_bus_message_new_method_return(call, &reply), "reply");
    Message owned(reply);
    check(sd_bus_message_open_container(reply, 'a', "{sa{sv}}"), "reply");
    check(sd_bus_message_open_container(reply, 'e', "sa{sv}"), "reply");
    check(sd_bus_message_append(reply, "s", "vpn"), "reply");
    check(sd_bus_message_open_container(reply, 'a', "{sv}"), "reply");
    check(sd_bus_message_open_container(reply, 'e', "sv"), "reply");
    check(sd_bus_message_append(reply, "s", "secrets"), "reply");
    check(sd_bus_message_open_container(reply, 'v', "a{ss}"), "reply");
    check(sd_bus_message_open_container(reply, 'a', "{ss}"), "reply");
    for (const auto &[name, secret] : answer.secrets) {
      check(sd_bus_message_append(reply, "{ss}", name.c_str(), secret.c_str()), "reply");
    }
    for (int level = 0; level < 6; ++level) check(sd_bus_message_close_container(reply), "reply");
    return sd_bus_send(nullptr, reply, nullptr);
  }

  static int onCancelGetSecrets(sd_bus_message *call, void *self, sd_bus_error *) {
    // Every request is answered at once, so none is ever pending.
    return answer(call, self, "CancelGetSecrets",
                  [&](Loop &) { return sd_bus_reply_method_return(call, ""); });
  }

  // NetworkManager hands over secrets set behind Tarnwick's back, or asks
  // for those of a deleted connection to go. The Coffer is changed through
  // the library alone: its credentials outlive a connection (the next
  // apply makes it again), and a service's removal deletes them.
  static int leaveToCoffer(sd_bus_message *call, void *self, const char *method, const char *what) {
    return answer(call, self, method, [&](Loop &loop) {
      ConnectionSettings connection = readSettings(call);
      const std::string *uuid = connection.findString("connection", "uuid");
      if (auto name = serviceOf(loop.agent.directory_, uuid ? *uuid : "")) {
        loop.note(std::string("NetworkManager asked to ") + what + " the secrets of " +
                  quoted(*name) + "; they stay as the Coffer holds them");
      }
      return sd_bus_reply_method_return(call, "");
    });
  }
  static int onSaveSecrets(sd_bus_message *call, void *self, sd_bus_error *) {
    return leaveToCoffer(call, self, "SaveSecrets", "save");
  }
  static int onDeleteSecrets(sd_bus_message *call, void *self, sd_bus_error *) {
    return leaveToCoffer(call, self, "DeleteSecrets", "delete");
  }

  // Unregisters while the bus is still open: leaving the loop closes it.
  static int onStop(sd_event_source *, const struct signalfd_siginfo *, void *self) {
    auto &loop = *static_cast<Loop *>(self);
    loop.unregister();
    return sd_event_exit(loop.event, 0);
  }

  // Method calls are checked against NetworkManager's name by the agent
  // itself, for every caller alike.
  static const sd_bus_vtable *vtable() {
    static const sd_bus_vtable methods[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD("GetSecrets", "a{sa{sv}}osasu", "a{sa{sv}}", onGetSecrets,
                      SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_METHOD("CancelGetSecrets", "os", "", onCancelGetSecrets, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_METHOD("SaveSecrets", "a{sa{sv}}o", "", onSaveSecrets, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_METHOD("DeleteSecrets", "a{sa{sv}}o", "", onDeleteSecrets,
                      SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_VTABLE_END};
    return methods;
  }

  const SecretAgent &agent;
  Bus bus;
  sd_event *event = nullptr;
  sd_bus_slot *object = nullptr;
  sd_bus_slot *ownerChanges = nullptr;
  sd_bus_slot *registration = nullptr;  // the last registration asked for
  sd_event_source *retry = nullptr;
  std::string manager;  // NetworkManager's unique name, "" while it is not on the bus
  bool registered = false;
};

SecretAgent::SecretAgent(std::string directory, CredentialSource source, Note note)
    : directory_(std::move(directory)), source_(std::move(source)), note_(std::move(note)) {}

void SecretAgent::run() {
  StopSignals blocked;
  Loop loop(*this);
  sd_bus *bus = loop.bus.get();
  check(sd_event_new(&loop.event), "event loop");
  check(sd_bus_attach_event(bus, loop.event, SD_EVENT_PRIORITY_NORMAL), "event loop");
  for (int stop : {SIGTERM, SIGINT}) {
    check(sd_event_add_signal(loop.event, nullptr, stop, Loop::onStop, &loop), "signals");
  }
  check(sd_bus_add_object_vtable(bus, &loop.object, kAgentPath, kAgentInterface, Loop::vtable(),
                                 &loop),
        "agent object");
  check(sd_bus_add_match(bus, &loop.ownerChanges, kOwnerChanges, Loop::onOwnerChanged, &loop),
        "NameOwnerChanged");
  // A bus that goes away ends the loop with a failure.
  check(sd_bus_set_exit_on_disconnect(bus, 1), "event loop");
  // Read after the match is in place, so that no change falls between.
  loop.managerIs(loop.bus.nameOwner(kNetworkManagerName));

  int exit = sd_event_loop(loop.event);
  if (exit != 0) {
    throw BusError("", "the system bus went away (" + loop.bus.address() + ")", true);
  }
}

}  // namespace engine
