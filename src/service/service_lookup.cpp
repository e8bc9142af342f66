// Finding VPN services by payload identity or on-demand support, removing
// one with its secrets and live connection, and telling whether a service
// still waits for its certificate. Nothing here logs.
#include "service/internal.hpp"
#include "tarnwick/platform/constant_string.hpp"
#include "tarnwick/platform/ref.hpp"

namespace {

TW_DEFINE_LOCAL_CONSTANT_STRING(kPayloadUUIDKey, "PayloadUUID")

ZNNetworkServiceRef serviceAt(PVArrayRef services, PVIndex index) {
  return static_cast<ZNNetworkServiceRef>(
      const_cast<void *>(PVArrayGetValueAtIndex(services, index)));
}

// A criterion that is present must be present and equal in `have`.
bool criterionHolds(PVDictionaryRef criteria, PVDictionaryRef have, PVStringRef key) {
  PVTypeRef wanted = PVDictionaryGetValue(criteria, key);
  if (!wanted) return true;
  PVTypeRef found = PVDictionaryGetValue(have, key);
  return found && PVEqual(wanted, found);
}

bool matches(ZNNetworkServiceRef service, PVDictionaryRef criteria) {
  PVStringRef type = JXVPNServiceGetType(service);
  if (!type) return false;
  if (!criteria) return true;
  // With criteria given, only services that carry payload data can match.
  PVDictionaryRef payload =
      JXVPNServiceGetProtocolConfiguration(service, kJXVPNProtocolTypePayload);
  if (!payload) return false;
  PVTypeRef wantedType = PVDictionaryGetValue(criteria, kJXVPNTypeKey);
  if (wantedType && !PVEqual(type, wantedType)) return false;
  return criterionHolds(criteria, payload, kJXPayloadIdentifierKey) &&
         criterionHolds(criteria, payload, kPayloadUUIDKey);
}

// Appends to `result`, made on the first append; false when it cannot be.
bool append(pv::Ref<PVMutableArrayRef> &result, ZNNetworkServiceRef service) {
  if (!result) result = pv::Ref<PVMutableArrayRef>::adopt(PVArrayCreateMutable());
  if (!result) return false;
  PVArrayAppendValue(result.get(), service);
  return true;
}

// The boolean true value itself: a number 1 or anything else equal to true
// does not count.
bool markedOnDemand(ZNNetworkServiceRef service) {
  PVTypeRef supported =
      PVEqual(JXVPNServiceGetType(service), kZNNetworkInterfaceTypeVPN)
          ? JXVPNServiceGetConfigurationPropertyForType(service, kJXVPNPropNetVPNOnDemandSupported,
                                                        kZNEntNetVPN)
          : JXVPNServiceGetConfigurationProperty(service, kJXVPNPropNetIPSecOnDemandSupported);
  return supported == kPVBooleanTrue;
}

// The connection of `serviceID` stopped when it is being made or is up.
void stopLiveConnection(PVStringRef serviceID) {
  auto connection = pv::Ref<ZNNetworkConnectionRef>::adopt(
      ZNNetworkConnectionCreateWithServiceID(kPVAllocatorDefault, serviceID, nullptr, nullptr));
  if (!connection) return;
  int status = ZNNetworkConnectionGetStatus(connection.get());
  if (status == kZNNetworkConnectionConnecting || status == kZNNetworkConnectionConnected) {
    // Best effort: the service goes whether or not its connection stops.
    (void)ZNNetworkConnectionStop(connection.get(), true);
  }
}

// Authentication by `certificateMethod` under `methodKey`, with no
// certificate under `certificateKey`; `configurationType` NULL reads each
// key where its key class says.
bool waitsForCertificate(ZNNetworkServiceRef service, PVStringRef configurationType,
                         PVStringRef methodKey, PVStringRef certificateMethod,
                         PVStringRef certificateKey) {
  auto read = [&](PVStringRef key) {
    return configurationType
               ? JXVPNServiceGetConfigurationPropertyForType(service, key, configurationType)
               : JXVPNServiceGetConfigurationProperty(service, key);
  };
  PVTypeRef method = read(methodKey);
  if (!method || !PVEqual(method, certificateMethod)) return false;
  return read(certificateKey) == nullptr;
}

}  // namespace

extern "C" {

PVArrayRef JXVPNServiceCopyMatching(PVDictionaryRef criteria,
                                    ZNPreferencesRef preferences) noexcept {
  if (!preferences) return nullptr;
  auto services = pv::Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyAll(preferences));
  if (!services) return nullptr;
  pv::Ref<PVMutableArrayRef> result;
  for (PVIndex i = 0; i < PVArrayGetCount(services.get()); ++i) {
    ZNNetworkServiceRef service = serviceAt(services.get(), i);
    if (service && matches(service, criteria) && !append(result, service)) return nullptr;
  }
  return result.release();
}

PVArrayRef JXVPNServiceCopyOnDemandSupported(ZNPreferencesRef preferences) noexcept {
  auto services = pv::Ref<PVArrayRef>::adopt(JXVPNServiceCopyMatching(nullptr, preferences));
  if (!services) return nullptr;
  pv::Ref<PVMutableArrayRef> result;
  for (PVIndex i = 0; i < PVArrayGetCount(services.get()); ++i) {
    ZNNetworkServiceRef service = serviceAt(services.get(), i);
    if (service && markedOnDemand(service) && !append(result, service)) return nullptr;
  }
  return result.release();
}

Boolean JXVPNServiceRemove(ZNNetworkServiceRef service) noexcept {
  PVStringRef serviceID = ZNNetworkServiceGetServiceID(service);
  if (!serviceID) return false;
  // The identifier belongs to the session's service, which goes away below.
  auto keptID = pv::Ref<PVStringRef>::retain(serviceID);
  JXVPNServiceRemovePasswordWithType(service, kJXVPNPasswordTypeAccount);
  JXVPNServiceRemoveSharedSecret(service);
  JXVPNServiceRemovePasswordWithType(service, kJXVPNPasswordTypeProxy);
  Boolean removed = ZNNetworkServiceRemove(service);
  // Stopped even when the service could not be removed.
  stopLiveConnection(keptID.get());
  return removed;
}

Boolean JXVPNServiceCertificatePending(ZNNetworkServiceRef service) noexcept {
  if (PVEqual(JXVPNServiceGetType(service), kZNNetworkInterfaceTypeVPN)) {
    return waitsForCertificate(service, kZNEntNetVPN, kZNPropNetVPNAuthenticationMethod,
                               kZNValNetVPNAuthenticationMethodCertificate,
                               kZNPropNetVPNLocalCertificate);
  }
  return waitsForCertificate(service, nullptr, kZNPropNetIPSecAuthenticationMethod,
                             kZNValNetIPSecAuthenticationMethodCertificate,
                             kZNPropNetIPSecLocalCertificate);
}

}  // extern "C"
