// Where the system bus is, for the notifications posted system-wide and
// for the VPN engine alike.
#pragma once

#include <string>

namespace platform {

// $DBUS_SYSTEM_BUS_ADDRESS when set, else the standard system bus socket.
[[nodiscard]] std::string systemBusAddress();

}  // namespace platform
