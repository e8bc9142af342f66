// Configuration keys typed on the command line.
//
// The library places a configuration key in its layer by identity: only the
// exported constant objects are recognised, so a typed key is resolved to
// the constant of that text first. Protocol keys are placed by equal text.
#pragma once

#include <string>

#include "store.hpp"

namespace tarnwick {

struct ResolvedKey {
  bool isProtocolKey = false;  // the protocol classifier knows it
  PVStringRef key = nullptr;   // the constant, or `made`
  Ref<PVStringRef> made;       // the typed text as a new string
};

// Where two constants share a text ("AuthenticationMethod" of IPSec and of
// VPN), the service's type chooses: the VPN one for a vendor VPN service.
ResolvedKey resolveKey(ZNNetworkServiceRef service, const std::string &text);

}  // namespace tarnwick
