// The installation and removal sequences, lock to unlock.
#pragma once

#include <string>
#include <vector>

#include "payload_file.hpp"
#include "store.hpp"

namespace tarnwick {

struct ServiceSummary {
  std::string id;
  std::string name;
  std::string type;        // the service type
  std::string vendorType;  // a vendor VPN's own type, else ""
  // "L2TP", or "VPN (com.example.vpn)" for a vendor VPN.
  std::string typeText() const {
    return vendorType.empty() ? type : type + " (" + vendorType + ")";
  }
};

struct Installed {
  ServiceSummary service;
  std::vector<ServiceSummary> replaced;  // services of the same payload, removed first
  std::vector<std::string> unusedKeys;
};

// Installs a checked payload: removes the services it installed before,
// creates the new one, stores every credential that applies and that the
// payload carries in the Coffer, records the payload's identity, selects
// the service, commits and applies. Notes on credentials the payload
// lacks go to stderr. A failure leaves the store as it was.
Installed installPayload(ZNPreferencesRef prefs, const PayloadFile &payload);

// What `remove` names: a payload file, a service identifier or a name
// (several services of one name only with `all`).
struct RemovalTarget {
  std::string argument;
  bool all = false;
};

// Removes the services the target names, with their Coffer secrets and
// (when no other service names it) their client identity; reselects,
// commits and applies.
std::vector<ServiceSummary> removeServices(ZNPreferencesRef prefs, const RemovalTarget &target);

ServiceSummary summarize(ZNNetworkServiceRef service);

}  // namespace tarnwick
