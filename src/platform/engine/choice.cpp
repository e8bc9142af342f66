#include "platform/engine/choice.hpp"

#include <cstdlib>

#include "platform/dbus/system_bus.hpp"
#include "platform/engine/network_manager.hpp"

namespace engine {

const char *engineName(EngineKind kind) {
  return kind == EngineKind::networkManager ? "networkmanager" : "none";
}

Choice chooseEngine() {
  Choice choice;
  const char *forced = std::getenv("TARNWICK_ENGINE");
  std::string wanted = forced ? forced : "";
  if (wanted == "none") {
    choice.forced = true;
    return choice;
  }
  if (!wanted.empty() && wanted != "networkmanager") {
    // Taken as none rather than as a guess at what was meant.
    choice.problem = "TARNWICK_ENGINE must be none or networkmanager, not \"" + wanted + "\"";
    choice.forced = true;
    return choice;
  }
  choice.forced = !wanted.empty();
  std::string address = platform::systemBusAddress();
  try {
    auto bus = std::make_unique<Bus>(address, kCallTimeout);
    std::string owner = NetworkManager(*bus).instance();
    if (!owner.empty()) {
      choice.kind = EngineKind::networkManager;
      choice.bus = std::move(bus);
      choice.instance = address + " " + owner;
      return choice;
    }
    choice.problem = "NetworkManager does not run on the system bus (" + address + ")";
  } catch (const BusError &error) {
    choice.problem = std::string("NetworkManager cannot be reached: ") + error.what();
  }
  // Forced, it stays the engine, out of reach; otherwise there is none.
  if (choice.forced) {
    choice.kind = EngineKind::networkManager;
  } else {
    choice.problem.clear();
  }
  return choice;
}

}  // namespace engine
