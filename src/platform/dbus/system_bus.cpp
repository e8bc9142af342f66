#include "platform/dbus/system_bus.hpp"

#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace platform {

std::string systemBusAddress() {
  const char *env = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
  return env && *env ? env : "unix:path=/run/dbus/system_bus_socket";
}

bool busMayAnswer(const std::string &address) {
  constexpr std::string_view kSocket = "unix:path=";
  // A list of addresses, or one with more keys, is left to D-Bus to read.
  if (!address.starts_with(kSocket) || address.find_first_of(",;") != std::string::npos) {
    return true;
  }
  return access(address.c_str() + kSocket.size(), F_OK) == 0;
}

}  // namespace platform
