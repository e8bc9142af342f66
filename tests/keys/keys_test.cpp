#include <gtest/gtest.h>
#include "tarnwick.h"
TEST(Smoke, Builds) { EXPECT_TRUE(PVEqual(kJXVPNPropNetIPSecOnDemandSupported, kJXVPNPropNetVPNOnDemandSupported)); }
