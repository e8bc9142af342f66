// ZNError and failures planned through the testing interface.
#include <thread>

#include "platform/prefs/support.hpp"
#include "support/test_support.hpp"
#include "tarnwick/platform/testing.h"

namespace tw::test {
namespace {

using PreferencesError = ServiceTest;

TEST_F(PreferencesError, LastErrorIsKeptPerThreadLeftAloneBySuccessAndSetByAPlannedFailure) {
  EXPECT_FALSE(ZNPreferencesUnlock(prefs_.get()));
  EXPECT_EQ(ZNError(), kZNStatusNotLocked);
  ASSERT_TRUE(ZNPreferencesLock(prefs_.get(), false));
  EXPECT_EQ(ZNError(), kZNStatusNotLocked);  // success leaves it
  int otherThread = -1;
  std::thread([&] { otherThread = ZNError(); }).join();
  EXPECT_EQ(otherThread, kZNStatusOK);
  EXPECT_EQ(ZNNetworkServiceCreate(prefs_.get(), nullptr), nullptr);
  EXPECT_EQ(ZNError(), kZNStatusInvalidArgument);
  EXPECT_FALSE(ZNNetworkServiceSetName(reinterpret_cast<ZNNetworkServiceRef>(prefs_.get()),
                                       text("wrong handle kind").get()));
  EXPECT_EQ(ZNError(), kZNStatusInvalidArgument);

  // A planned failure, once: a getter gives null, a setter changes nothing.
  auto service = createService(prefs_.get(), Chain::L2TP, "Planned");
  PTFailNthCall("ZNNetworkServiceGetName", 1);
  EXPECT_EQ(ZNNetworkServiceGetName(service.get()), nullptr);
  EXPECT_EQ(ZNError(), kZNStatusInjected);
  PTFailNthCall("ZNNetworkServiceSetName", 1);
  EXPECT_FALSE(ZNNetworkServiceSetName(service.get(), text("Lost").get()));
  EXPECT_EQ(textOf(ZNNetworkServiceGetName(service.get())), "Planned");
}

}  // namespace
}  // namespace tw::test
