#include "platform/dbus/system_bus.hpp"

#include <cstdlib>

namespace platform {

std::string systemBusAddress() {
  const char *env = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
  return env && *env ? env : "unix:path=/run/dbus/system_bus_socket";
}

}  // namespace platform
