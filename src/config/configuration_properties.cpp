// Single settings of a service's interface layers, placed by key.
//
// A key the classifier does not know gets a NULL type, which the walk takes
// to mean the outer interface's own configuration: unknown keys are read
// from and written to the outer interface. The remover is the exception and
// never touches an unknown key.
#include "config/internal.hpp"
#include "config/property_removal.hpp"

extern "C" {

PVTypeRef JXVPNServiceGetConfigurationProperty(ZNNetworkServiceRef service,
                                               PVStringRef key) noexcept {
  if (!key) return nullptr;
  return JXVPNServiceGetConfigurationPropertyForType(service, key,
                                                     __JXVPNGetConfigurationTypeFromKey(key));
}

PVTypeRef JXVPNServiceGetConfigurationPropertyForType(ZNNetworkServiceRef service, PVStringRef key,
                                                      PVStringRef configurationType) noexcept {
  if (!key) return nullptr;
  PVDictionaryRef configuration = nullptr;
  __JXVPNServiceGetInterfaceAndConfiguration(service, configurationType, nullptr, &configuration,
                                             nullptr);
  if (!configuration) return nullptr;
  return PVDictionaryGetValue(configuration, key);
}

Boolean JXVPNServiceSetConfigurationProperty(ZNNetworkServiceRef service, PVStringRef key,
                                             PVTypeRef value) noexcept {
  if (!key || !value) return false;
  return JXVPNServiceSetConfigurationPropertyForType(service, key, value,
                                                     __JXVPNGetConfigurationTypeFromKey(key));
}

// A merge of one entry, so every other key of the configuration stays.
Boolean JXVPNServiceSetConfigurationPropertyForType(ZNNetworkServiceRef service, PVStringRef key,
                                                    PVTypeRef value,
                                                    PVStringRef configurationType) noexcept {
  if (!key || !value) return false;
  PVTypeRef keys[] = {key};
  PVTypeRef values[] = {value};
  auto entry = pv::Ref<PVDictionaryRef>::adopt(PVDictionaryCreate(keys, values, 1));
  if (!entry) return false;
  return JXVPNServiceMergeConfiguration(service, configurationType, entry.get());
}

Boolean JXVPNServiceRemoveConfigurationProperties(ZNNetworkServiceRef service,
                                                  PVArrayRef keys) noexcept {
  if (!service || !keys) return false;
  return tw::config::removeEachKey(
      keys, __JXVPNGetConfigurationTypeFromKey,
      [service](PVStringRef type) { return JXVPNServiceGetConfiguration(service, type); },
      [service](PVStringRef type, PVDictionaryRef configuration) {
        return JXVPNServiceSetConfiguration(service, type, configuration);
      });
}

}  // extern "C"
