#include "config/service_builder.hpp"

#include "tarnwick/platform/testing.h"

namespace tw::test {

namespace {

using Interface = pv::Ref<ZNNetworkInterfaceRef>;

Interface layer(ZNNetworkInterfaceRef below, PVStringRef type) {
  return Interface::adopt(ZNNetworkInterfaceCreateWithInterface(below, type));
}

Interface outerInterface(Chain chain) {
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

void ServiceTest::SetUp() {
  StoreTest::SetUp();
  prefs_ = pv::Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  ASSERT_TRUE(prefs_);
}

void ServiceTest::TearDown() {
  service_ = {};
  prefs_ = {};
  StoreTest::TearDown();
}

ZNNetworkServiceRef ServiceTest::makeService(Chain chain, bool payloadProtocol) {
  Interface outer = outerInterface(chain);
  EXPECT_TRUE(outer);
  service_ = pv::Ref<ZNNetworkServiceRef>::adopt(ZNNetworkServiceCreate(prefs_.get(), outer.get()));
  EXPECT_TRUE(service_);
  EXPECT_TRUE(ZNNetworkServiceEstablishDefaultConfiguration(service_.get()));
  if (payloadProtocol) {
    EXPECT_TRUE(ZNNetworkServiceAddProtocolType(service_.get(), kJXVPNProtocolTypePayload));
  }
  return service_.get();
}

long ServiceTest::layerWrites() {
  return PTCallCount("ZNNetworkInterfaceSetConfiguration") +
         PTCallCount("ZNNetworkInterfaceSetExtendedConfiguration");
}

}  // namespace tw::test
