// Which engine the platform hands applied services to.
//
// TARNWICK_ENGINE=none or =networkmanager forces one. Otherwise it is
// NetworkManager when NetworkManager answers on the system bus
// ($DBUS_SYSTEM_BUS_ADDRESS when set), and none when it does not: a
// machine without NetworkManager keeps a store that works, and the next
// apply after NetworkManager starts brings it in line.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "platform/engine/bus.hpp"

namespace engine {

enum class EngineKind { none, networkManager };

const char *engineName(EngineKind kind);  // "none", "networkmanager"

// How long any one call to the engine may take.
inline constexpr std::chrono::milliseconds kCallTimeout{3000};

struct Choice {
  EngineKind kind = EngineKind::none;
  bool forced = false;  // by TARNWICK_ENGINE
  // Set when the engine is NetworkManager and answers.
  std::unique_ptr<Bus> bus;
  std::string instance;  // "<bus address> <unique name>"
  // Why a forced NetworkManager is not in reach, or why TARNWICK_ENGINE
  // was not understood; "" otherwise.
  std::string problem;
};

// Decides now, reaching the system bus unless TARNWICK_ENGINE=none.
Choice chooseEngine();

}  // namespace engine
