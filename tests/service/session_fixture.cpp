#include "service/session_fixture.hpp"

namespace tw::test {

std::vector<std::string> chainTypes(ZNNetworkServiceRef service) {
  std::vector<std::string> types;
  for (ZNNetworkInterfaceRef layer = ZNNetworkServiceGetInterface(service); layer;
       layer = ZNNetworkInterfaceGetInterface(layer)) {
    types.push_back(textOf(ZNNetworkInterfaceGetInterfaceType(layer)));
  }
  return types;
}

std::vector<std::string> serviceIDs(PVArrayRef services) {
  std::vector<std::string> ids;
  for (PVIndex i = 0; i < PVArrayGetCount(services); ++i) {
    ids.push_back(
        textOf(ZNNetworkServiceGetServiceID(elementAt<ZNNetworkServiceRef>(services, i))));
  }
  return ids;
}

void SessionTest::SetUp() {
  StoreTest::SetUp();
  prefs_ = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  ASSERT_TRUE(prefs_);
  PTCaptureStart();
}

void SessionTest::TearDown() {
  prefs_ = {};
  StoreTest::TearDown();
}

std::vector<std::string> SessionTest::sessionServiceIDs() const {
  auto all = Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyAll(prefs()));
  return serviceIDs(all.get());
}

Ref<PVArrayRef> SessionTest::sets() const {
  return Ref<PVArrayRef>::adopt(ZNNetworkSetCopyAll(prefs()));
}

void SessionTest::addSet() const {
  auto set = Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCreate(prefs()));
  ASSERT_TRUE(set);
}

Ref<ZNNetworkServiceRef> SessionTest::create(PVStringRef type, const char *name) const {
  auto service =
      Ref<ZNNetworkServiceRef>::adopt(JXVPNServiceCreate(type, text(name).get(), prefs()));
  EXPECT_TRUE(service) << name;
  return service;
}

std::string SessionTest::idOf(ZNNetworkServiceRef service) {
  return textOf(ZNNetworkServiceGetServiceID(service));
}

}  // namespace tw::test
