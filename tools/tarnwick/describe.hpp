// Services and the store as JSON: what `list`, `show` and `dump` print.
// Secrets never appear: configuration values under a secret key are
// replaced, and the Coffer's secrets are told only as stored or absent.
#pragma once

#include "values.hpp"
#include "store.hpp"

namespace tarnwick {

// {"id", "name", "type", "selected", "onDemand"} for each service, in order.
Json listServices(ZNPreferencesRef prefs, const std::vector<Ref<ZNNetworkServiceRef>> &services);

// Name, identifier, type, enabled, the sets that select it, every layer of
// the chain with its configuration and extended configurations, every
// protocol with its configuration, and the secrets as stored or absent.
Json describeService(ZNPreferencesRef prefs, ZNNetworkServiceRef service);

// The whole committed store: the generation applied, the sets, and every
// service with its chain and protocols. Stable order, for diffs.
Json describeStore(ZNPreferencesRef prefs);

// A configuration dictionary as JSON with its secret values hidden; null
// for a missing one.
Json configurationJson(PVDictionaryRef configuration);

}  // namespace tarnwick
