// Per-connection user options: a dictionary of sections by layer (PPP,
// IPSec, EAP) that a caller hands over when it starts a connection. A key
// goes to the section its classification names, else to the section named
// by the service type; the other layer kinds have no section, so their keys
// have no place here.
#include "config/internal.hpp"
#include "tarnwick/platform/ref.hpp"

namespace {

PVMutableDictionaryRef sectionForKey(ZNNetworkServiceRef service, PVDictionaryRef options,
                                     PVStringRef key) {
  PVStringRef configurationType = __JXVPNGetConfigurationTypeFromKey(key);
  if (!configurationType) configurationType = JXVPNServiceGetType(service);
  if (!configurationType) return nullptr;
  // Sections are made mutable by Create.
  return static_cast<PVMutableDictionaryRef>(
      const_cast<void *>(PVDictionaryGetValue(options, configurationType)));
}

}  // namespace

extern "C" {

// A section that cannot be made is left out; the options are still usable.
PVMutableDictionaryRef JXVPNServiceConnectionUserOptionsCreate(void) noexcept {
  PVMutableDictionaryRef options = PVDictionaryCreateMutable();
  if (!options) return nullptr;
  for (PVStringRef sectionKey : {kZNEntNetPPP, kZNEntNetIPSec, kZNValNetPPPAuthProtocolEAP}) {
    auto section = pv::Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutable());
    if (section) PVDictionarySetValue(options, sectionKey, section.get());
  }
  return options;
}

PVTypeRef JXVPNServiceConnectionUserOptionsGetProperty(ZNNetworkServiceRef service,
                                                       PVDictionaryRef options,
                                                       PVStringRef key) noexcept {
  if (!options) return nullptr;
  PVMutableDictionaryRef section = sectionForKey(service, options, key);
  if (!section) return nullptr;
  return PVDictionaryGetValue(section, key);
}

void JXVPNServiceConnectionUserOptionsSetProperty(ZNNetworkServiceRef service,
                                                  PVMutableDictionaryRef options, PVStringRef key,
                                                  PVTypeRef value) noexcept {
  if (!options) return;
  PVMutableDictionaryRef section = sectionForKey(service, options, key);
  if (!section) return;
  PVDictionarySetValue(section, key, value);
}

}  // extern "C"
