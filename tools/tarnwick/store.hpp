// The store the tool works on: chosen once at start, opened as a session
// (its directory made for a change, never for a look), locked between
// processes, and searched for services.
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

// Makes the chosen store's directory when it is missing: mode 0700, its
// missing parents as mkdir -p would, never through a symbolic link or a
// directory another user owns.
void makeStoreDirectory();

// A session on the chosen store. A missing store, or one that cannot be
// opened, is "store cannot be opened" with the real cause.
Ref<ZNPreferencesRef> openPreferences();

// How long a change waits for another process's lock: < 0 as long as it
// takes, 0 not at all.
void setLockWait(double seconds);

// Takes the preferences lock, saying on stderr when it has to wait for
// another process. Fails with the lock's exit code.
void lockPreferences(ZNPreferencesRef prefs);

// Every service this library handles, in the store's order.
std::vector<Ref<ZNNetworkServiceRef>> vpnServices(ZNPreferencesRef prefs);

// How the command line names a service: SERVICE (an identifier, else a
// name), --id, --name, or (remove only) --file.
struct ServiceArgument {
  std::string any;
  std::string id;
  std::string name;
  std::string file;
  // The argument as given, for messages.
  std::string text() const;
};

// The VPN service the argument names. Not found, or a name held by
// several services, is a failure.
Ref<ZNNetworkServiceRef> findService(ZNPreferencesRef prefs, const ServiceArgument &argument);

// The VPN service with this identifier, or null.
Ref<ZNNetworkServiceRef> serviceWithID(ZNPreferencesRef prefs, const std::string &id);

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
