// Service lifecycle helpers shared inside the library. Not part of the
// public interface.
#pragma once

#include "tarnwick.h"

TW_EXTERN_C_BEGIN

// A new service of `serviceType` on its interface chain, with the default
// configuration and the payload protocol, disabled, unnamed and in no set.
// Ownership: create.
[[nodiscard]] ZNNetworkServiceRef __JXVPNServiceCreate(PVStringRef serviceType,
                                         ZNPreferencesRef preferences) TW_NOEXCEPT;

// Adds the service to every set of the session, taking a same-named
// service out of each set first. False when the session has no set or a
// set refuses; sets reached before a refusal keep the service.
[[nodiscard]] Boolean __JXVPNServiceAddToAllSets(ZNNetworkServiceRef service,
                                   ZNPreferencesRef preferences) TW_NOEXCEPT;

// The identifier of the current set's selected VPN service, or NULL.
// Ownership: copy.
[[nodiscard]] PVStringRef __JXVPNCopyCurrentSelectedServiceID(ZNPreferencesRef prefs) TW_NOEXCEPT;

TW_EXTERN_C_END

namespace tw::service {

// Gives up a service being made: removes it from its session and releases it.
inline void abandon(ZNNetworkServiceRef service) {
  (void)ZNNetworkServiceRemove(service);  // the caller fails either way
  PVRelease(service);
}

}  // namespace tw::service
