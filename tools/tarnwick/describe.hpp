// The tool's one vocabulary: services and the store as JSON, the fields
// every command prints under the same names ("id", "name", "type",
// "vendorType", "layers", ...). Secrets never appear: configuration values
// under a secret key are replaced, and the Coffer's secrets are told only
// as stored or absent.
#pragma once

#include <vector>

#include "store.hpp"
#include "values.hpp"

namespace tarnwick {

// Who a service is, as every command names it.
struct ServiceSummary {
  std::string id;
  std::string name;
  std::string type;        // the service type; "" for a service this library does not handle
  std::string vendorType;  // a vendor VPN's own type, else ""
  // "L2TP", or "VPN (com.example.vpn)" for a vendor VPN.
  std::string typeText() const {
    return vendorType.empty() ? type : type + " (" + vendorType + ")";
  }
};

ServiceSummary summarize(ZNNetworkServiceRef service);

// {"id", "name", "type", "vendorType" (vendor VPNs only)}.
Json summaryJson(const ServiceSummary &service);

// The summary with "enabled", "selected" (by the current set) and
// "onDemand", for each service, in order.
Json listServices(ZNPreferencesRef prefs, const std::vector<Ref<ZNNetworkServiceRef>> &services);

// The list's fields, the sets that select it ("selectedIn": id and name
// each), every layer of the chain with its configuration and extended
// configurations, every protocol with its configuration, and the secrets
// as stored or absent.
Json describeService(ZNPreferencesRef prefs, ZNNetworkServiceRef service);

// The whole committed store: the generation applied, the sets, and every
// service with its layers and protocols. Stable order, for diffs.
Json describeStore(ZNPreferencesRef prefs);

// A configuration dictionary as JSON with its secret values hidden; null
// for a missing one.
Json configurationJson(PVDictionaryRef configuration);

}  // namespace tarnwick
