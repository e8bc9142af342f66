// A connection to the system bus and bounded method calls over it: the
// small D-Bus layer under the engine's clients.
//
// Every call waits at most the connection's call timeout, so an engine that
// hangs costs a caller one timeout, never a wait without end. A failure is
// a BusError that tells a refusal by the peer (it answered with an error)
// from a transport failure (no answer, no bus, the peer went away), after
// which a caller stops talking to that peer.
#pragma once

#include <systemd/sd-bus.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <utility>

namespace engine {

class BusError : public std::runtime_error {
 public:
  BusError(std::string name, const std::string &message, bool transport)
      : std::runtime_error(message), name_(std::move(name)), transport_(transport) {}
  // The D-Bus error name, or "" for a local failure.
  const std::string &name() const { return name_; }
  bool transport() const { return transport_; }
  // The object called went away between finding it and calling it: a
  // connection deleted or deactivated meanwhile answers so.
  bool objectGone() const {
    return name_ == "org.freedesktop.DBus.Error.UnknownObject" ||
           name_ == "org.freedesktop.DBus.Error.UnknownMethod" ||
           name_ == "org.freedesktop.DBus.Error.UnknownInterface";
  }

 private:
  std::string name_;
  bool transport_;
};

// Owns one sd_bus_message reference.
class Message {
 public:
  Message() = default;
  explicit Message(sd_bus_message *message) : message_(message) {}
  Message(Message &&other) noexcept : message_(std::exchange(other.message_, nullptr)) {}
  Message &operator=(Message &&other) noexcept {
    std::swap(message_, other.message_);
    return *this;
  }
  ~Message() { sd_bus_message_unref(message_); }
  sd_bus_message *get() const { return message_; }

 private:
  sd_bus_message *message_ = nullptr;
};

// Throws a local (non-transport) BusError for a negative sd-bus result
// while building or reading a message.
int check(int result, const char *what);

class Bus {
 public:
  // Connects; a transport BusError when the bus cannot be reached.
  Bus(const std::string &address, std::chrono::milliseconds callTimeout);
  ~Bus();
  Bus(const Bus &) = delete;
  Bus &operator=(const Bus &) = delete;

  const std::string &address() const { return address_; }

  // The unique name that owns `name` now, or "" when nobody does.
  std::string nameOwner(const char *name);

  // A method call to fill with arguments, then to pass to call().
  Message newCall(const char *destination, const char *path, const char *interface,
                  const char *member);
  // Sends and waits for the reply, at most the call timeout.
  Message call(const Message &message);
  // A property's value: the reply to Properties.Get, its read position in
  // the variant, which holds a value of D-Bus type `type`.
  Message property(const char *destination, const char *path, const char *interface,
                   const char *name, const char *type);

  // For signal matches, exported objects and an event loop.
  sd_bus *get() const { return bus_; }

 private:
  sd_bus *bus_ = nullptr;
  std::string address_;
  uint64_t timeoutMicroseconds_;
};

}  // namespace engine
