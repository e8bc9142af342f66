#include <gtest/gtest.h>

#include "support/services.hpp"
#include "tarnwick/platform/testing.h"

namespace tw::test {
namespace {

class ConnectionUserOptions : public ServiceTest {
 protected:
  void SetUp() override {
    ServiceTest::SetUp();
    options_ = pv::Ref<PVMutableDictionaryRef>::adopt(JXVPNServiceConnectionUserOptionsCreate());
    ASSERT_TRUE(options_);
  }
  PVDictionaryRef section(PVStringRef type) const {
    return static_cast<PVDictionaryRef>(PVDictionaryGetValue(options_.get(), type));
  }
  PVIndex entriesInAllSections() const {
    return PVDictionaryGetCount(section(kZNEntNetPPP)) +
           PVDictionaryGetCount(section(kZNEntNetIPSec)) +
           PVDictionaryGetCount(section(kZNValNetPPPAuthProtocolEAP));
  }
  pv::Ref<PVMutableDictionaryRef> options_;
};

TEST_F(ConnectionUserOptions, StartWithExactlyThreeEmptySectionsOwnedByTheOptions) {
  EXPECT_EQ(PVDictionaryGetCount(options_.get()), 3);
  for (PVStringRef type : {kZNEntNetPPP, kZNEntNetIPSec, kZNValNetPPPAuthProtocolEAP}) {
    PVDictionaryRef s = section(type);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(PVGetTypeID(s), PVDictionaryGetTypeID());
    EXPECT_EQ(PVDictionaryGetCount(s), 0);
    EXPECT_EQ(PVGetRetainCount(s), 1);
  }
  EXPECT_EQ(PVGetRetainCount(options_.get()), 1);
}

TEST_F(ConnectionUserOptions, ClassifiedKeysGoToTheirSectionWithoutAskingTheService) {
  auto name = text("user"), pin = text("1234");
  JXVPNServiceConnectionUserOptionsSetProperty(nullptr, options_.get(), kZNPropNetPPPAuthName,
                                               name.get());
  JXVPNServiceConnectionUserOptionsSetProperty(nullptr, options_.get(), kJXVPNPromptForPinKey,
                                               pin.get());
  EXPECT_EQ(PTCallCount("ZNNetworkServiceGetInterface"), 0);
  EXPECT_EQ(PVDictionaryGetValue(section(kZNEntNetPPP), kZNPropNetPPPAuthName), name.get());
  EXPECT_EQ(PVDictionaryGetValue(section(kZNEntNetIPSec), kJXVPNPromptForPinKey), pin.get());
  ZNNetworkServiceRef service = makeService(Chain::IPSec);
  EXPECT_EQ(
      JXVPNServiceConnectionUserOptionsGetProperty(service, options_.get(), kZNPropNetPPPAuthName),
      name.get());
  EXPECT_EQ(JXVPNServiceConnectionUserOptionsGetProperty(service, options_.get(),
                                                         kZNPropNetPPPAuthPassword),
            nullptr);
}

TEST_F(ConnectionUserOptions, UnknownKeysGoToTheSectionNamedByTheServiceTypeIfAny) {
  auto key = text("AuthName");  // equal text, not the constant: unknown
  auto value = text("value");
  ZNNetworkServiceRef ipsec = makeService(Chain::IPSec);
  JXVPNServiceConnectionUserOptionsSetProperty(ipsec, options_.get(), key.get(), value.get());
  EXPECT_EQ(PVDictionaryGetValue(section(kZNEntNetIPSec), key.get()), value.get());
  EXPECT_EQ(JXVPNServiceConnectionUserOptionsGetProperty(ipsec, options_.get(), key.get()),
            value.get());

  auto other = text("Other");
  for (Chain chain : {Chain::L2TP, Chain::PPTP, Chain::Vendor, Chain::PPPOverNothing}) {
    SCOPED_TRACE(static_cast<int>(chain));
    ZNNetworkServiceRef service = makeService(chain);
    JXVPNServiceConnectionUserOptionsSetProperty(service, options_.get(), other.get(), value.get());
    EXPECT_EQ(JXVPNServiceConnectionUserOptionsGetProperty(service, options_.get(), key.get()),
              nullptr);
  }
  EXPECT_EQ(PVDictionaryGetCount(options_.get()), 3);
  EXPECT_EQ(entriesInAllSections(), 1);
}

TEST_F(ConnectionUserOptions, NullOptionsAreIgnoredAndValuesAreRetainedOnce) {
  auto first = text("first"), second = text("second");
  JXVPNServiceConnectionUserOptionsSetProperty(nullptr, nullptr, kZNPropNetPPPAuthName,
                                               first.get());
  EXPECT_EQ(JXVPNServiceConnectionUserOptionsGetProperty(nullptr, nullptr, kZNPropNetPPPAuthName),
            nullptr);
  EXPECT_EQ(PVGetRetainCount(first.get()), 1);

  JXVPNServiceConnectionUserOptionsSetProperty(nullptr, options_.get(), kZNPropNetPPPAuthName,
                                               first.get());
  EXPECT_EQ(PVGetRetainCount(first.get()), 2);
  JXVPNServiceConnectionUserOptionsSetProperty(nullptr, options_.get(), kZNPropNetPPPAuthName,
                                               second.get());
  EXPECT_EQ(PVGetRetainCount(first.get()), 1);
  EXPECT_EQ(entriesInAllSections(), 1);
  options_ = {};
  EXPECT_EQ(PVGetRetainCount(second.get()), 1);
}

}  // namespace
}  // namespace tw::test
