// The store opened on any database bytes: the open fails, or every object
// in it reads, and a commit into it works or fails; never a crash.
#include <filesystem>
#include <fstream>

#include "harness.hpp"
#include "tarnwick.h"

namespace {

void describe(PVTypeRef value) {
  if (!value) return;
  PVRelease(PVCopyDescription(value));
}

void readService(ZNNetworkServiceRef service) {
  describe(ZNNetworkServiceGetServiceID(service));
  describe(ZNNetworkServiceGetName(service));
  (void)ZNNetworkServiceGetEnabled(service);
  (void)JXVPNServiceGetType(service);
  for (ZNNetworkInterfaceRef layer = ZNNetworkServiceGetInterface(service); layer;
       layer = ZNNetworkInterfaceGetInterface(layer)) {
    describe(ZNNetworkInterfaceGetInterfaceType(layer));
    describe(ZNNetworkInterfaceGetConfiguration(layer));
    auto types = pv::Ref<PVArrayRef>::adopt(ZNNetworkInterfaceCopyExtendedConfigurationTypes(layer));
    for (PVIndex i = 0; i < PVArrayGetCount(types.get()); ++i) {
      auto type = static_cast<PVStringRef>(PVArrayGetValueAtIndex(types.get(), i));
      describe(ZNNetworkInterfaceGetExtendedConfiguration(layer, type));
    }
  }
  auto protocols = pv::Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyProtocols(service));
  for (PVIndex i = 0; i < PVArrayGetCount(protocols.get()); ++i) {
    auto protocol = static_cast<ZNNetworkProtocolRef>(
        const_cast<void *>(PVArrayGetValueAtIndex(protocols.get(), i)));
    describe(ZNNetworkProtocolGetProtocolType(protocol));
    describe(ZNNetworkProtocolGetConfiguration(protocol));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string store = fuzz::scratchDirectory() + "/store";
  std::filesystem::remove_all(store);
  std::filesystem::create_directory(store);
  std::ofstream(store + "/preferences.db", std::ios::binary)
      .write(reinterpret_cast<const char *>(data), static_cast<std::streamsize>(size));
  auto prefs = pv::Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreateWithStore(store.c_str()));
  if (!prefs) return 0;
  auto services = pv::Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyAll(prefs.get()));
  for (PVIndex i = 0; i < PVArrayGetCount(services.get()); ++i) {
    readService(static_cast<ZNNetworkServiceRef>(
        const_cast<void *>(PVArrayGetValueAtIndex(services.get(), i))));
  }
  auto sets = pv::Ref<PVArrayRef>::adopt(ZNNetworkSetCopyAll(prefs.get()));
  for (PVIndex i = 0; i < PVArrayGetCount(sets.get()); ++i) {
    auto set = static_cast<ZNNetworkSetRef>(const_cast<void *>(PVArrayGetValueAtIndex(sets.get(), i)));
    describe(ZNNetworkSetGetName(set));
    auto members = pv::Ref<PVArrayRef>::adopt(ZNNetworkSetCopyServices(set));
    auto selected = pv::Ref<ZNNetworkServiceRef>::adopt(ZNNetworkSetCopySelectedVPNService(set));
    auto name = pv::Ref<PVStringRef>::adopt(PVStringCreateWithCString("Renamed"));
    (void)ZNNetworkSetSetName(set, name.get());
  }
  auto vpn = pv::Ref<PVArrayRef>::adopt(JXVPNServiceCopyMatching(nullptr, prefs.get()));
  (void)ZNPreferencesCommitChanges(prefs.get());
  (void)ZNPreferencesGetAppliedGeneration(prefs.get());
  return 0;
}
