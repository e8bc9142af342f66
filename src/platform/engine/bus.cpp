#include "platform/engine/bus.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/dbus/system_bus.hpp"

namespace engine {
namespace {

// Errors that mean nobody answered, as opposed to a refusal.
bool isTransportError(const char *name) {
  static const char *const transport[] = {
      "org.freedesktop.DBus.Error.NoReply",        "org.freedesktop.DBus.Error.Timeout",
      "org.freedesktop.DBus.Error.TimedOut",       "org.freedesktop.DBus.Error.Disconnected",
      "org.freedesktop.DBus.Error.ServiceUnknown", "org.freedesktop.DBus.Error.NameHasNoOwner",
      "org.freedesktop.DBus.Error.NoServer",       "org.freedesktop.DBus.Error.LimitsExceeded"};
  if (!name) return true;
  for (const char *t : transport) {
    if (std::strcmp(name, t) == 0) return true;
  }
  return false;
}

}  // namespace

int check(int result, const char *what) {
  if (result < 0) throw BusError("", std::string(what) + ": " + std::strerror(-result), false);
  return result;
}

Bus::Bus(const std::string &address, std::chrono::milliseconds callTimeout)
    : address_(address),
      timeoutMicroseconds_(
          uint64_t(std::chrono::duration_cast<std::chrono::microseconds>(callTimeout).count())) {
  if (!platform::busMayAnswer(address)) {
    throw BusError("", "no system bus at " + address + ": " + std::strerror(ENOENT), true);
  }
  int r = sd_bus_new(&bus_);
  if (r >= 0) r = sd_bus_set_address(bus_, address.c_str());
  if (r >= 0) r = sd_bus_set_bus_client(bus_, 1);
  if (r >= 0) r = sd_bus_set_method_call_timeout(bus_, timeoutMicroseconds_);
  if (r >= 0) r = sd_bus_start(bus_);
  if (r < 0) {
    sd_bus_unref(bus_);
    bus_ = nullptr;
    throw BusError("", "no system bus at " + address + ": " + std::strerror(-r), true);
  }
}

Bus::~Bus() {
  // In a forked child the connection is the parent's: leave it alone.
  if (bus_ && sd_bus_get_tid(bus_, nullptr) != -ECHILD) sd_bus_flush_close_unref(bus_);
}

std::string Bus::nameOwner(const char *name) {
  Message m = newCall("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                      "GetNameOwner");
  check(sd_bus_message_append(m.get(), "s", name), "GetNameOwner");
  try {
    Message reply = call(m);
    const char *owner = nullptr;
    check(sd_bus_message_read(reply.get(), "s", &owner), "GetNameOwner reply");
    return owner ? owner : "";
  } catch (const BusError &error) {
    if (error.name() == "org.freedesktop.DBus.Error.NameHasNoOwner") return "";
    throw;
  }
}

Message Bus::newCall(const char *destination, const char *path, const char *interface,
                     const char *member) {
  sd_bus_message *message = nullptr;
  check(sd_bus_message_new_method_call(bus_, &message, destination, path, interface, member),
        member);
  return Message(message);
}

Message Bus::call(const Message &message) {
  sd_bus_error error = SD_BUS_ERROR_NULL;
  sd_bus_message *reply = nullptr;
  int r = sd_bus_call(bus_, message.get(), timeoutMicroseconds_, &error, &reply);
  if (r < 0) {
    std::string name = error.name ? error.name : "";
    std::string text = error.message ? error.message : std::strerror(-r);
    bool transport = sd_bus_error_is_set(&error) ? isTransportError(error.name) : true;
    sd_bus_error_free(&error);
    throw BusError(name, text, transport);
  }
  return Message(reply);
}

Message Bus::property(const char *destination, const char *path, const char *interface,
                      const char *name, const char *type) {
  Message m = newCall(destination, path, "org.freedesktop.DBus.Properties", "Get");
  check(sd_bus_message_append(m.get(), "ss", interface, name), "Get");
  Message reply = call(m);
  check(sd_bus_message_enter_container(reply.get(), 'v', type), name);
  return reply;
}

}  // namespace engine
