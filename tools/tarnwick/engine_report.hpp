// What the VPN engine did with a change, and how far it holds the store:
// the engine's report dictionaries (tarnwick/platform/engine.h) in words.
#pragma once

#include <string>

#include "values.hpp"

namespace tarnwick {

// An engine report or status in the tool's vocabulary: its keys in lower
// camel case, "ServiceID" as "id" (null for no report).
Json engineJson(PVDictionaryRef report);

// The report of what this process's applies did since it was last taken,
// as JSON (null when nothing was applied).
Json takeEngineReport();

// One line: which engine, and what it did ("Engine networkmanager: 1
// added, 0 updated, 0 deleted, 3 unchanged; 2 cannot be expressed").
std::string engineLine(const Json &report);

// Prints that line for what this process's applies did: what install,
// remove, set and select say after their change.
void printEngineLine();

// True when the engine is NetworkManager and did not take every change.
bool engineFellShort(const Json &report);

// A service's state in words, with its reason: "in line", "cannot
// express: ...".
std::string stateText(const Json &service);

}  // namespace tarnwick
