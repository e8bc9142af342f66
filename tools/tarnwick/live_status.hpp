// The services' live connections as the tool tells them: in NetworkManager
// with the VPN engine on, in the store's connection registry with it off.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "store.hpp"

namespace tarnwick {

// "disconnected", "connecting", "connected", "disconnecting".
const char *statusWord(int status);

// Each service's status word by identifier, read at once; "unknown" for
// every one when the engine does not answer.
std::map<std::string, std::string> liveStatusWords(
    const std::vector<Ref<ZNNetworkServiceRef>> &services);

}  // namespace tarnwick
