// The library's exported constants.
#include <gtest/gtest.h>

#include "support/test_support.hpp"
#include "tarnwick.h"

namespace {

using tw::test::text;

TEST(LibraryConstants, OnDemandSupportedIsOneObjectUnderTwoNames) {
  EXPECT_EQ(kJXVPNPropNetIPSecOnDemandSupported, kJXVPNPropNetVPNOnDemandSupported);
  EXPECT_STREQ(PVStringGetCStringPtr(kJXVPNPropNetVPNOnDemandSupported), "OnDemandSupported");
}

TEST(LibraryConstants, AreImmortal) {
  PVIndex before = PVGetRetainCount(kJXVPNTypeKey);
  for (int i = 0; i < 3; ++i) PVRelease(kJXVPNTypeKey);
  PVRetain(kJXPayloadIdentifierKey);
  EXPECT_EQ(PVGetRetainCount(kJXVPNTypeKey), before);
  EXPECT_STREQ(PVStringGetCStringPtr(kJXVPNTypeKey), "VPNType");
}

TEST(LibraryConstants, CallerMadeStringOfEqualTextWorksAsADictionaryKey) {
  auto key = text("VPNType");
  ASSERT_NE(key.get(), kJXVPNTypeKey);
  auto payload = tw::test::dict({{key.get(), kZNEntNetL2TP}});
  EXPECT_EQ(PVDictionaryGetValue(payload.get(), kJXVPNTypeKey), kZNEntNetL2TP);
}

TEST(LibraryConstants, EachConstantIsItsOwnObjectEvenWhenTextsMatchThePlatforms) {
  // The layer classifier tells keys apart by identity, so equal text must
  // never mean the same object across the library and the platform.
  auto none = text("None");
  EXPECT_TRUE(PVEqual(kJXVPNPropNetProxiesHTTPProxyTypeNone, none.get()));
  EXPECT_NE(static_cast<PVTypeRef>(kZNNetworkInterfaceTypeIPSec),
            static_cast<PVTypeRef>(kZNEntNetIPSec));
  EXPECT_TRUE(PVEqual(kZNNetworkInterfaceTypeIPSec, kZNEntNetIPSec));
}

}  // namespace
