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
// answers each from the credential the mapping names for it.
#pragma once

#include <map>
#include <string>

#include "platform/engine/credential.hpp"
#include "platform/engine/settings.hpp"
#include "platform/engine/store_view.hpp"
#include "platform/engine/vendor_table.hpp"

namespace engine {

// The keys of user.data naming the service a connection was made for and
// the store that holds it. Recognition is by UUID (a name-based UUID of the
// service identifier); the keys let a thorough pass find the connections
// of its store's services that are gone, and leave other stores' alone.
inline constexpr char kServiceIDUserDataKey[] = "org.tarnwick.service-id";
inline constexpr char kStoreUserDataKey[] = "org.tarnwick.store";

struct Mapping {
  std::string plugin;  // "l2tp", "pptp", "vpnc", or a vendor plugin's service type
  std::string reason;  // non-empty when no plugin can express the service
  ConnectionSettings settings;
  // The plugin's secrets (its vpn.secrets keys), and the credential that
  // answers each.
  std::map<std::string, Credential> secrets;

  bool expressible() const { return reason.empty(); }
};

// `store` is the store's directory, as an absolute path.
Mapping mapService(const ServiceView &service, const VendorTable &vendors,
                   const std::string &store);

}  // namespace engine
