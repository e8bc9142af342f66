// The system-wide notification center on a private bus.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>

#include "platform/notify/private_bus.hpp"
#include "support/test_support.hpp"
#include "tarnwick/platform/notify.h"

namespace tw::test {
namespace {

class SystemNotifications : public StoreTest {
 protected:
  void TearDown() override {
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    StoreTest::TearDown();
  }
};

TEST_F(SystemNotifications, PostReachesAListenerOnTheSystemBus) {
  PrivateBus bus(storeDir());
  ASSERT_FALSE(bus.address().empty()) << "dbus-daemon did not start";
  setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.address().c_str(), 1);
  PostedListener listener(bus.address());
  ASSERT_TRUE(listener.listening());

  NCSystemCenterPost(text("com.example.vpn-changed").get(), true);
  NCSystemCenterPost(text("second").get(), false);
  auto names = listener.receive(2, 10'000);
  EXPECT_EQ(names, (std::vector<std::string>{"com.example.vpn-changed", "second"}));
}

// The connection is per process: a child makes its own and still gets
// through, and the parent's keeps working afterwards.
TEST_F(SystemNotifications, ForkedChildPostsOnItsOwnConnection) {
  PrivateBus bus(storeDir());
  ASSERT_FALSE(bus.address().empty());
  setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.address().c_str(), 1);
  PostedListener listener(bus.address());
  ASSERT_TRUE(listener.listening());
  NCSystemCenterPost(text("parent").get(), true);
  EXPECT_EQ(runInChildProcess([] {
              NCSystemCenterPost(text("child").get(), true);
              return true;
            }),
            0);
  NCSystemCenterPost(text("parent again").get(), true);
  auto names = listener.receive(3, 10'000);
  EXPECT_EQ(names, (std::vector<std::string>{"parent", "child", "parent again"}));
}

// Nobody at the address, or a socket that accepts and never answers: the
// post is dropped and returns.
TEST_F(SystemNotifications, UnreachableOrSilentBusDropsThePost) {
  setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + storeDir() + "/nobody").c_str(), 1);
  NCSystemCenterPost(text("dropped").get(), true);

  int silent = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_GE(silent, 0);
  sockaddr_un where{};
  where.sun_family = AF_UNIX;
  std::string path = storeDir() + "/silent";
  path.copy(where.sun_path, sizeof where.sun_path - 1);
  ASSERT_EQ(bind(silent, reinterpret_cast<sockaddr *>(&where), sizeof where), 0);
  ASSERT_EQ(listen(silent, 1), 0);
  setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + path).c_str(), 1);
  NCSystemCenterPost(text("dropped too").get(), true);
  NCSystemCenterPost(text("and again").get(), true);
  close(silent);
}

}  // namespace
}  // namespace tw::test
