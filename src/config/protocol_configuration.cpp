// The configurations of a service's protocols (IPv4, Proxies, the payload
// protocol), whole or by key.
//
// Unlike the layer accessors, a key the protocol classifier does not know is
// never written, and a merge writes its result even when it is empty.
#include "config/internal.hpp"
#include "config/merge.hpp"
#include "config/property_removal.hpp"

extern "C" {

// The configuration belongs to the session, so it outlives the protocol
// handle released here.
PVDictionaryRef JXVPNServiceGetProtocolConfiguration(ZNNetworkServiceRef service,
                                                     PVStringRef protocolType) noexcept {
  auto protocol =
      pv::Ref<ZNNetworkProtocolRef>::adopt(ZNNetworkServiceCopyProtocol(service, protocolType));
  if (!protocol) return nullptr;
  return ZNNetworkProtocolGetConfiguration(protocol.get());
}

Boolean JXVPNServiceSetProtocolConfiguration(ZNNetworkServiceRef service, PVStringRef protocolType,
                                             PVDictionaryRef configuration) noexcept {
  auto protocol =
      pv::Ref<ZNNetworkProtocolRef>::adopt(ZNNetworkServiceCopyProtocol(service, protocolType));
  if (!protocol) return false;
  return ZNNetworkProtocolSetConfiguration(protocol.get(), configuration);
}

Boolean JXVPNServiceMergeProtocolConfiguration(ZNNetworkServiceRef service,
                                               PVStringRef protocolType,
                                               PVDictionaryRef entries) noexcept {
  if (!service) return false;
  if (!entries) return true;
  auto merged = tw::config::createMerged(
      JXVPNServiceGetProtocolConfiguration(service, protocolType), entries);
  if (!merged) return false;
  return JXVPNServiceSetProtocolConfiguration(service, protocolType, merged.get());
}

Boolean JXVPNServiceSetProtocolConfigurationProperty(ZNNetworkServiceRef service, PVStringRef key,
                                                     PVTypeRef value) noexcept {
  if (!key || !value) return false;
  PVStringRef protocolType = __JXVPNGetProtocolConfigurationTypeFromKey(key);
  if (!protocolType) return false;
  PVTypeRef keys[] = {key};
  PVTypeRef values[] = {value};
  auto entry = pv::Ref<PVDictionaryRef>::adopt(PVDictionaryCreate(keys, values, 1));
  if (!entry) return false;
  return JXVPNServiceMergeProtocolConfiguration(service, protocolType, entry.get());
}

PVTypeRef JXVPNServiceGetProtocolConfigurationProperty(ZNNetworkServiceRef service,
                                                       PVStringRef key) noexcept {
  if (!key) return nullptr;
  PVStringRef protocolType = __JXVPNGetProtocolConfigurationTypeFromKey(key);
  if (!protocolType) return nullptr;
  PVDictionaryRef configuration = JXVPNServiceGetProtocolConfiguration(service, protocolType);
  if (!configuration) return nullptr;
  return PVDictionaryGetValue(configuration, key);
}

Boolean JXVPNServiceRemoveProtocolConfigurationProperties(ZNNetworkServiceRef service,
                                                          PVArrayRef keys) noexcept {
  if (!service || !keys) return false;
  return tw::config::removeEachKey(
      keys, __JXVPNGetProtocolConfigurationTypeFromKey,
      [service](PVStringRef type) { return JXVPNServiceGetProtocolConfiguration(service, type); },
      [service](PVStringRef type, PVDictionaryRef configuration) {
        return JXVPNServiceSetProtocolConfiguration(service, type, configuration);
      });
}

}  // extern "C"
