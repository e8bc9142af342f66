// Configuration keys typed on the command line: where each goes, and the
// kind of value it holds there.
//
// The library places a configuration key in its layer by identity: only the
// exported constant objects are recognised, so a typed key is resolved to
// the constant of that text first. Protocol keys are placed by equal text.
#pragma once

#include <string>

#include "commands.hpp"

namespace tarnwick {

struct KeyPlace {
  PVStringRef key = nullptr;  // the constant, or `made`
  Ref<PVStringRef> made;      // the typed text as a new string
  bool isProtocolKey = false; // placed by the protocol classifier
  std::string type;           // the configuration or protocol type; "" when unknown
  JXVPNValueKind kind = kJXVPNValueKindUnknown;
  bool anyKey = false;        // a configuration whose keys are not the library's (EAP, vendor)
  bool byType = false;        // reached through its configuration type, not the classifiers
};

// Where the key of `arguments` goes in the service: the --type or
// --protocol given, else where the library's classifiers put it, else (as
// the library does) the outer layer's own configuration. Where two
// constants share a text ("AuthenticationMethod" of IPSec and of VPN), the
// service's type chooses: the VPN one for a vendor VPN service. With
// `strict`, a key or configuration type the library does not know is a
// usage failure unless --force was given.
KeyPlace placeKey(ZNNetworkServiceRef service, const PropertyArguments &arguments, bool strict);

}  // namespace tarnwick
