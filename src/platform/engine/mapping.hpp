// The one mapping from a VPN service of the store to a NetworkManager
// connection: which plugin carries it (vpn.service-type), the plugin's
// vpn.data keys, and the proxy and IPv4 settings where NetworkManager has
// an equivalent. Every key name comes from the plugins and NetworkManager
// themselves; tarnwick(1) lists the table.
//
// A service that no plugin can express maps to nothing and a reason,
// never to a connection that carries part of it. Secrets are never mapped:
// every secret's flags say agent-owned (1), so NetworkManager neither
// stores one nor writes one to a file; it asks a secret agent, which
// answers from the Coffer.
#pragma once

#include <string>

#include "platform/engine/settings.hpp"
#include "platform/engine/store_view.hpp"
#include "platform/engine/vendor_table.hpp"

namespace engine {

// The key of connection.user-data naming the service a connection was made
// for. Recognition is by UUID (a name-based UUID of this identifier); the
// key lets a thorough pass find connections of services that are gone.
inline constexpr char kServiceIDUserDataKey[] = "org.tarnwick.service-id";

struct Mapping {
  std::string plugin;  // "l2tp", "pptp", "vpnc", or a vendor plugin's service type
  std::string reason;  // non-empty when no plugin can express the service
  ConnectionSettings settings;

  bool expressible() const { return reason.empty(); }
};

Mapping mapService(const ServiceView &service, const VendorTable &vendors);

}  // namespace engine
