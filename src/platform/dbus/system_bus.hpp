// Where the system bus is, for the notifications posted system-wide and
// for the VPN engine alike.
#pragma once

#include <string>

namespace platform {

// $DBUS_SYSTEM_BUS_ADDRESS when set, else the standard system bus socket.
[[nodiscard]] std::string systemBusAddress();

// False when `address` is one socket path with nothing there: no bus can
// answer, and finding that out needs no D-Bus library loaded (a machine or
// container without a system bus is common). True for any other address.
[[nodiscard]] bool busMayAnswer(const std::string &address);

}  // namespace platform
