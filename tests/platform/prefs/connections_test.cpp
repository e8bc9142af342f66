// The connection registry: status set by one process, read and stopped by
// another.
#include <fstream>

#include "platform/prefs/support.hpp"
#include "support/test_support.hpp"

namespace tw::test {
namespace {

using NetworkConnection = StoreTest;

Ref<ZNNetworkConnectionRef> controller(const char *serviceID) {
  return Ref<ZNNetworkConnectionRef>::adopt(ZNNetworkConnectionCreateWithServiceID(
      kPVAllocatorDefault, text(serviceID).get(), nullptr, nullptr));
}

TEST_F(NetworkConnection, StatusComesFromTheRegistryAfreshAndStopDisconnects) {
  auto connection = controller("service-a");
  ASSERT_TRUE(connection);
  EXPECT_EQ(ZNNetworkConnectionGetStatus(connection.get()), kZNNetworkConnectionDisconnected);

  ASSERT_EQ(runInChildProcess([] {
              return ZNNetworkConnectionSetStatusForServiceID(text("service-a").get(),
                                                              kZNNetworkConnectionConnected) &&
                     ZNNetworkConnectionSetStatusForServiceID(text("service-b").get(),
                                                              kZNNetworkConnectionConnecting);
            }),
            0);
  EXPECT_EQ(ZNNetworkConnectionGetStatus(connection.get()), kZNNetworkConnectionConnected);
  EXPECT_EQ(ZNNetworkConnectionGetStatus(controller("service-b").get()),
            kZNNetworkConnectionConnecting);

  ASSERT_TRUE(ZNNetworkConnectionStop(connection.get(), true));
  EXPECT_EQ(runInChildProcess([] {
              return ZNNetworkConnectionGetStatus(controller("service-a").get()) ==
                         kZNNetworkConnectionDisconnected &&
                     ZNNetworkConnectionGetStatus(controller("service-b").get()) ==
                         kZNNetworkConnectionConnecting;
            }),
            0);
  EXPECT_FALSE(ZNNetworkConnectionSetStatusForServiceID(text("service-a").get(), 7));
  EXPECT_EQ(ZNError(), kZNStatusInvalidArgument);
}

TEST_F(NetworkConnection, CorruptRegistryIsReportedAndLeftAlone) {
  const std::string registry = storeDir() + "/connections.json";
  std::ofstream(registry) << "{\"service-a\": ";
  auto connection = controller("service-a");
  EXPECT_EQ(ZNNetworkConnectionGetStatus(connection.get()), 0);
  EXPECT_EQ(ZNError(), kZNStatusCorruptStore);
  EXPECT_FALSE(ZNNetworkConnectionStop(connection.get(), true));
  EXPECT_EQ(ZNError(), kZNStatusCorruptStore);
  EXPECT_EQ(fileBytes(registry), "{\"service-a\": ");
}

}  // namespace
}  // namespace tw::test
