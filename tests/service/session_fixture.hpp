// A store with one open session and the log and notification capture on,
// for the service lifecycle tests.
#pragma once

#include <string>

#include "support/services.hpp"
#include "tarnwick/platform/testing.h"

namespace tw::test {

class SessionTest : public ServiceTest {
 protected:
  void SetUp() override {
    ServiceTest::SetUp();
    PTCaptureStart();
  }

  ZNPreferencesRef prefs() const { return prefs_.get(); }
  // The session's sets, in order.
  Ref<PVArrayRef> sets() const { return Ref<PVArrayRef>::adopt(ZNNetworkSetCopyAll(prefs())); }
  // The identifiers of the members of the set at `index`, joined by commas.
  std::string memberIDs(PVIndex index) const {
    auto members =
        Ref<PVArrayRef>::adopt(ZNNetworkSetCopyServices(at<ZNNetworkSetRef>(sets().get(), index)));
    return serviceNames(members.get(), true);
  }
  // A further, empty set.
  void addSet() const { ASSERT_TRUE(Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCreate(prefs()))); }
  // A service of `type` named `name`, in every set.
  Ref<ZNNetworkServiceRef> create(PVStringRef type, const char *name) const {
    auto service =
        Ref<ZNNetworkServiceRef>::adopt(JXVPNServiceCreate(type, text(name).get(), prefs()));
    EXPECT_TRUE(service) << name;
    return service;
  }
  static std::string idOf(ZNNetworkServiceRef service) {
    return textOf(ZNNetworkServiceGetServiceID(service));
  }
};

}  // namespace tw::test
