// Creating a VPN service: its interface chain, the platform's defaults, the
// payload protocol, disabled, named, and a member of every set.
//
// Every failure after the service exists removes it from the session again,
// so a failed call leaves no half-made service behind.
#include "service/internal.hpp"
#include "tarnwick/platform/log.h"
#include "tarnwick/platform/ref.hpp"

namespace {

// The outer VPN layer of a vendor chain. The creator keeps its reference
// and never releases it, as the library always has (the layer lives as long
// as the session anyway), so it stays in a function of its own that the
// sanitizer run's leak suppression can name.
[[gnu::noinline]] ZNNetworkInterfaceRef createKeptVPNLayer(ZNNetworkInterfaceRef vendorLayer) {
  return ZNNetworkInterfaceCreateWithInterface(vendorLayer, kZNNetworkInterfaceTypeVPN);
}

// The service on `outer` with its defaults, disabled; NULL after logging.
ZNNetworkServiceRef createOnInterface(ZNPreferencesRef preferences, ZNNetworkInterfaceRef outer) {
  ZNNetworkServiceRef service = ZNNetworkServiceCreate(preferences, outer);
  if (!service) {
    SysLogWrite(kSysLogLevelError, "VPN: couldn't create service");
    return nullptr;
  }
  // The payload protocol has no message of its own: it shares the defaults'.
  if (!ZNNetworkServiceEstablishDefaultConfiguration(service) ||
      !ZNNetworkServiceAddProtocolType(service, kJXVPNProtocolTypePayload)) {
    SysLogWrite(kSysLogLevelError, "VPN: couldn't establish default configuration");
    tw::service::abandon(service);
    return nullptr;
  }
  if (!ZNNetworkServiceSetEnabled(service, false)) {
    SysLogWrite(kSysLogLevelError, "VPN: couldn't set the newly created service as inactive");
    tw::service::abandon(service);
    return nullptr;
  }
  return service;
}

// Takes the first member of `set` named like `name` out of the set.
void takeOutSameNamed(ZNNetworkSetRef set, PVStringRef name) {
  auto members = pv::Ref<PVArrayRef>::adopt(ZNNetworkSetCopyServices(set));
  if (!members) return;
  for (PVIndex i = 0; i < PVArrayGetCount(members.get()); ++i) {
    auto member = static_cast<ZNNetworkServiceRef>(
        const_cast<void *>(PVArrayGetValueAtIndex(members.get(), i)));
    PVStringRef memberName = ZNNetworkServiceGetName(member);
    if (name && memberName && PVEqual(name, memberName)) {
      SysLogWriteDefault(
          "%s: This service(%@) exists, replacing it",
          "Boolean __JXVPNServiceAddToAllSets(ZNNetworkServiceRef, ZNPreferencesRef)", memberName);
      // Not looked at: the new service is added whether or not the old one left.
      (void)ZNNetworkSetRemoveService(set, member);
      return;
    }
  }
}

}  // namespace

extern "C" {

ZNNetworkServiceRef __JXVPNServiceCreate(PVStringRef serviceType,
                                         ZNPreferencesRef preferences) noexcept {
  if (!preferences) return nullptr;
  auto layer = pv::Ref<ZNNetworkInterfaceRef>::adopt(
      ZNNetworkInterfaceCreateWithInterface(kZNNetworkInterfaceIPv4, serviceType));
  if (!layer) {
    SysLogWrite(kSysLogLevelError, "VPN: couldn't create vpn interface");
    return nullptr;
  }

  ZNNetworkInterfaceRef outer = layer.get();
  pv::Ref<ZNNetworkInterfaceRef> pppLayer;
  if (PVEqual(serviceType, kZNEntNetIPSec)) {
    // IPSec runs straight over IPv4.
  } else if (PVEqual(serviceType, kZNEntNetL2TP) || PVEqual(serviceType, kZNEntNetPPTP)) {
    pppLayer = pv::Ref<ZNNetworkInterfaceRef>::adopt(
        ZNNetworkInterfaceCreateWithInterface(layer.get(), kZNNetworkInterfaceTypePPP));
    if (!pppLayer) {
      SysLogWrite(kSysLogLevelError, "VPN: couldn't create ppp interface");
      return nullptr;
    }
    outer = pppLayer.get();
  } else {
    outer = createKeptVPNLayer(layer.get());
    if (!outer) {
      SysLogWrite(kSysLogLevelError, "VPN: couldn't create ssl interface");
      return nullptr;
    }
  }
  return createOnInterface(preferences, outer);
}

ZNNetworkServiceRef JXVPNServiceCreate(PVStringRef serviceType, PVStringRef name,
                                       ZNPreferencesRef preferences) noexcept {
  ZNNetworkServiceRef service = __JXVPNServiceCreate(serviceType, preferences);
  if (!service) return nullptr;
  if (ZNNetworkServiceSetName(service, name) && __JXVPNServiceAddToAllSets(service, preferences)) {
    return service;
  }
  tw::service::abandon(service);
  return nullptr;
}

Boolean __JXVPNServiceAddToAllSets(ZNNetworkServiceRef service,
                                   ZNPreferencesRef preferences) noexcept {
  if (!preferences) return false;
  auto sets = pv::Ref<PVArrayRef>::adopt(ZNNetworkSetCopyAll(preferences));
  if (!sets) return false;
  PVIndex count = PVArrayGetCount(sets.get());
  // A service that could be in no set is not kept.
  if (count == 0) return false;

  Boolean added = false;
  for (PVIndex i = 0; i < count; ++i) {
    auto set =
        static_cast<ZNNetworkSetRef>(const_cast<void *>(PVArrayGetValueAtIndex(sets.get(), i)));
    if (!set) continue;
    takeOutSameNamed(set, ZNNetworkServiceGetName(service));
    added = ZNNetworkSetAddService(set, service);
    if (!added) {
      SysLogWrite(kSysLogLevelError, "VPN: couldn't add service %s", ZNErrorString(ZNError()));
      return false;
    }
  }
  return added;
}

}  // extern "C"
