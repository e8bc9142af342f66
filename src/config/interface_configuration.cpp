// The chain walk, and reading, replacing and merging a whole configuration.
//
// A configuration type names a layer of the service's interface chain; a
// type that no layer has is kept on the outer interface as an extended
// configuration under that type (EAP settings, a vendor plug-in's settings,
// IPSec settings of an L2TP service). A write always goes back through the
// same pair, plain or extended, that the walk chose.
#include "config/internal.hpp"
#include "config/merge.hpp"

namespace {

// The first layer from the top whose type equals `configurationType`, or
// NULL. A layer whose type cannot be read is asked again rather than
// stepped past: every layer of a VPN chain has a type, and skipping one
// could match a deeper layer by mistake.
ZNNetworkInterfaceRef findLayer(ZNNetworkInterfaceRef outer, PVStringRef configurationType) {
  ZNNetworkInterfaceRef layer = outer;
  while (layer) {
    PVStringRef type = ZNNetworkInterfaceGetInterfaceType(layer);
    if (!type) continue;
    if (PVEqual(type, configurationType)) return layer;
    layer = ZNNetworkInterfaceGetInterface(layer);
  }
  return nullptr;
}

Boolean writeConfiguration(ZNNetworkInterfaceRef interface, PVStringRef configurationType,
                           Boolean extended, PVDictionaryRef configuration) {
  if (extended) {
    return ZNNetworkInterfaceSetExtendedConfiguration(interface, configurationType, configuration);
  }
  return ZNNetworkInterfaceSetConfiguration(interface, configuration);
}

}  // namespace

extern "C" {

void __JXVPNServiceGetInterfaceAndConfiguration(ZNNetworkServiceRef service,
                                                PVStringRef configurationType,
                                                ZNNetworkInterfaceRef *outInterface,
                                                PVDictionaryRef *outConfiguration,
                                                Boolean *outExtended) noexcept {
  ZNNetworkInterfaceRef interface = nullptr;
  PVDictionaryRef configuration = nullptr;
  Boolean extended = false;

  ZNNetworkInterfaceRef outer = service ? ZNNetworkServiceGetInterface(service) : nullptr;
  if (outer) {
    // A NULL type means the outer interface itself.
    ZNNetworkInterfaceRef found = configurationType ? findLayer(outer, configurationType) : outer;
    if (found) {
      interface = found;
      if (outConfiguration) configuration = ZNNetworkInterfaceGetConfiguration(found);
    } else {
      interface = outer;
      extended = true;
      if (outConfiguration) {
        configuration = ZNNetworkInterfaceGetExtendedConfiguration(outer, configurationType);
      }
    }
  }

  if (outConfiguration) *outConfiguration = configuration;
  if (outInterface) *outInterface = interface;
  if (outExtended) *outExtended = extended;
}

PVDictionaryRef JXVPNServiceGetConfiguration(ZNNetworkServiceRef service,
                                             PVStringRef configurationType) noexcept {
  PVDictionaryRef configuration = nullptr;
  __JXVPNServiceGetInterfaceAndConfiguration(service, configurationType, nullptr, &configuration,
                                             nullptr);
  return configuration;
}

Boolean JXVPNServiceSetConfiguration(ZNNetworkServiceRef service, PVStringRef configurationType,
                                     PVDictionaryRef configuration) noexcept {
  if (!service || !configuration) return false;
  ZNNetworkInterfaceRef interface = nullptr;
  Boolean extended = false;
  __JXVPNServiceGetInterfaceAndConfiguration(service, configurationType, &interface, nullptr,
                                             &extended);
  if (!interface) return false;
  return writeConfiguration(interface, configurationType, extended, configuration);
}

Boolean JXVPNServiceMergeConfiguration(ZNNetworkServiceRef service, PVStringRef configurationType,
                                       PVDictionaryRef entries) noexcept {
  if (!service) return false;
  // Nothing to lay over counts as done, unlike a NULL service: installation
  // merges each optional payload part and must not fail for a missing one.
  if (!entries) return true;
  ZNNetworkInterfaceRef interface = nullptr;
  PVDictionaryRef existing = nullptr;
  Boolean extended = false;
  __JXVPNServiceGetInterfaceAndConfiguration(service, configurationType, &interface, &existing,
                                             &extended);
  if (!interface) return false;
  auto merged = tw::config::createMerged(existing, entries);
  if (!merged) return false;
  // Both sides empty: leave the layer as it is rather than write an empty
  // configuration.
  if (PVDictionaryGetCount(merged.get()) == 0) return true;
  return writeConfiguration(interface, configurationType, extended, merged.get());
}

}  // extern "C"
