// The kind of VPN a service is, read from the top of its interface chain.
#include "tarnwick.h"

namespace {

// L2TP and PPTP services are PPP over the tunnel layer; only the one layer
// below the PPP layer is looked at.
PVStringRef tunnelTypeBelow(ZNNetworkInterfaceRef ppp) {
  ZNNetworkInterfaceRef tunnel = ZNNetworkInterfaceGetInterface(ppp);
  if (!tunnel) return nullptr;
  PVStringRef type = ZNNetworkInterfaceGetInterfaceType(tunnel);
  // Compared with the entity names, not the interface-type constants; the
  // two are equal text and callers compare the result with entity names.
  if (PVEqual(type, kZNEntNetL2TP)) return type;
  if (PVEqual(type, kZNEntNetPPTP)) return type;
  return nullptr;
}

}  // namespace

extern "C" {

// The service is handed to the platform untested: a NULL service simply has
// no interface.
PVStringRef JXVPNServiceGetType(ZNNetworkServiceRef service) noexcept {
  ZNNetworkInterfaceRef outer = ZNNetworkServiceGetInterface(service);
  if (!outer) return nullptr;
  PVStringRef type = ZNNetworkInterfaceGetInterfaceType(outer);
  if (PVEqual(type, kZNNetworkInterfaceTypeIPSec)) return type;
  if (PVEqual(type, kZNNetworkInterfaceTypeVPN)) return type;
  if (PVEqual(type, kZNNetworkInterfaceTypePPP)) return tunnelTypeBelow(outer);
  return nullptr;
}

}  // extern "C"
