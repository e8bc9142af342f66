#include "support/services.hpp"

#include "tarnwick/platform/testing.h"

namespace tw::test {

namespace {

Ref<ZNNetworkInterfaceRef> outerInterface(Chain chain) {
  switch (chain) {
    case Chain::IPSec:
      return layer(kZNNetworkInterfaceIPv4, kZNNetworkInterfaceTypeIPSec);
    case Chain::L2TP:
      return layer(layer(kZNNetworkInterfaceIPv4, kZNEntNetL2TP).get(), kZNNetworkInterfaceTypePPP);
    case Chain::PPTP:
      return layer(layer(kZNNetworkInterfaceIPv4, kZNEntNetPPTP).get(), kZNNetworkInterfaceTypePPP);
    case Chain::Vendor:
      return layer(layer(kZNNetworkInterfaceIPv4, text(kVendorType).get()).get(),
                   kZNNetworkInterfaceTypeVPN);
    case Chain::PPPOverModem:
      return layer(layer(kZNNetworkInterfaceIPv4, text("Modem").get()).get(),
                   kZNNetworkInterfaceTypePPP);
    case Chain::PPPOverNothing:
      return layer(nullptr, kZNNetworkInterfaceTypePPP);
  }
  return {};
}

}  // namespace

Ref<ZNNetworkInterfaceRef> layer(ZNNetworkInterfaceRef below, PVStringRef type) {
  return Ref<ZNNetworkInterfaceRef>::adopt(ZNNetworkInterfaceCreateWithInterface(below, type));
}

Ref<ZNNetworkServiceRef> createService(ZNPreferencesRef prefs, Chain chain, const char *name) {
  auto service =
      Ref<ZNNetworkServiceRef>::adopt(ZNNetworkServiceCreate(prefs, outerInterface(chain).get()));
  EXPECT_TRUE(service && ZNNetworkServiceEstablishDefaultConfiguration(service.get()));
  if (name) {
    EXPECT_TRUE(ZNNetworkServiceSetName(service.get(), text(name).get()));
  }
  return service;
}

void ServiceTest::SetUp() {
  StoreTest::SetUp();
  prefs_ = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  ASSERT_TRUE(prefs_);
}

void ServiceTest::TearDown() {
  services_.clear();
  prefs_ = {};
  StoreTest::TearDown();
}

ZNNetworkServiceRef ServiceTest::makeService(Chain chain, const char *name, bool payloadProtocol) {
  services_.push_back(createService(prefs_.get(), chain, name));
  if (payloadProtocol) {
    EXPECT_TRUE(ZNNetworkServiceAddProtocolType(services_.back().get(), kJXVPNProtocolTypePayload));
  }
  return services_.back().get();
}

long ServiceTest::layerWrites() {
  return PTCallCount("ZNNetworkInterfaceSetConfiguration") +
         PTCallCount("ZNNetworkInterfaceSetExtendedConfiguration");
}

}  // namespace tw::test
