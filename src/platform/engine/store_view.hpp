// The VPN services of a store, as the engine reads them: each one's kind,
// identity and the configuration dictionaries the mapping looks at, found
// in its interface chain and protocols.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/prefs/model.hpp"

namespace engine {

enum class ServiceKind { l2tp, pptp, ipsec, vendor };

// The service type as people know it: "L2TP", "PPTP", "IPSec", "VPN".
const char *kindName(ServiceKind kind);

// Dictionaries are borrowed from the document and null when absent.
struct ServiceView {
  std::string id;
  std::string name;
  ServiceKind kind = ServiceKind::ipsec;
  std::string vendorType;  // the vendor layer's type, for ServiceKind::vendor

  PVDictionaryRef ppp = nullptr;      // L2TP and PPTP: the PPP layer
  PVDictionaryRef ipsec = nullptr;    // IPSec: its layer; L2TP: the PPP layer's IPSec extension
  PVDictionaryRef vpn = nullptr;      // vendor VPN: the VPN layer
  PVDictionaryRef vendor = nullptr;   // vendor VPN: the vendor layer
  PVDictionaryRef ipv4 = nullptr;     // the IPv4 protocol
  PVDictionaryRef proxies = nullptr;  // the Proxies protocol
};

// The service as the engine reads it; nothing for a service of another
// chain, which is no VPN service. Throws kZNStatusCorruptStore when it does
// not decode.
std::optional<ServiceView> vpnService(zn::Service &service);

// Every VPN service of the document, in the store's order. Services of
// any other chain are no VPN services and are left out. Throws
// kZNStatusCorruptStore when a stored service does not decode.
std::vector<ServiceView> vpnServices(zn::Document &document);

}  // namespace engine
