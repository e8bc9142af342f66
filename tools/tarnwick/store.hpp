// The store the tool works on: chosen once at start, opened as a session,
// locked between processes, and searched for services.
#pragma once

#include <string>
#include <vector>

#include "tarnwick.h"
#include "tarnwick/platform/ref.hpp"

namespace tarnwick {

template <typename T>
using Ref = pv::Ref<T>;

// Makes `directory` the process's store (sessions and the Coffer both live
// there); an empty one means the embedded default.
void chooseStore(const std::string &directory);

// A session on the chosen store, which the platform makes on first use
// when it is the default one; "store cannot be opened" with the platform's
// text otherwise.
Ref<ZNPreferencesRef> openPreferences(const std::string &explicitDirectory);

// Takes the preferences lock, saying on stderr when it has to wait for
// another process. Fails with the lock's exit code.
void lockPreferences(ZNPreferencesRef prefs);

// Every service this library handles, in the store's order.
std::vector<Ref<ZNNetworkServiceRef>> vpnServices(ZNPreferencesRef prefs);

// The VPN service with this identifier, or else the one with this name.
// Not found, or a name held by several services, is a failure.
Ref<ZNNetworkServiceRef> findService(ZNPreferencesRef prefs, const std::string &idOrName);

// The VPN services named so (any number).
std::vector<Ref<ZNNetworkServiceRef>> servicesNamed(ZNPreferencesRef prefs,
                                                    const std::string &name);

std::string serviceID(ZNNetworkServiceRef service);
std::string serviceName(ZNNetworkServiceRef service);
// The vendor layer's type of a vendor VPN service, else "".
std::string vendorType(ZNNetworkServiceRef service);

// An array element as the handle it holds (borrowed).
template <typename T>
T elementAt(PVArrayRef array, PVIndex index) {
  return static_cast<T>(const_cast<void *>(PVArrayGetValueAtIndex(array, index)));
}

}  // namespace tarnwick
