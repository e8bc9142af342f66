// The in-process notification center.
#include <string>
#include <vector>

#include "support/test_support.hpp"
#include "tarnwick/platform/notify.h"
#include "tarnwick/platform/testing.h"

namespace tw::test {
namespace {

using LocalNotifications = StoreTest;

struct Recorder {
  std::vector<std::string> calls;
  std::string tag;
  static void record(PVStringRef name, void *context) {
    auto *self = static_cast<Recorder *>(context);
    self->calls.push_back(self->tag + ":" + textOf(name));
  }
};

TEST_F(LocalNotifications, ObserversOfTheNameAreCalledInOrderUntilRemoved) {
  Recorder first{{}, "first"}, second{{}, "second"};
  auto changed = text("VPNChanged");
  auto other = text("Other");
  ASSERT_TRUE(NCLocalCenterAddObserver(changed.get(), Recorder::record, &first));
  ASSERT_TRUE(NCLocalCenterAddObserver(changed.get(), Recorder::record, &second));
  ASSERT_TRUE(NCLocalCenterAddObserver(other.get(), Recorder::record, &second));

  NCLocalCenterPost(text("VPNChanged").get());  // an equal name, not the same object
  EXPECT_EQ(first.calls, std::vector<std::string>{"first:VPNChanged"});
  EXPECT_EQ(second.calls, std::vector<std::string>{"second:VPNChanged"});

  NCLocalCenterRemoveObserver(changed.get(), Recorder::record, &first);
  NCLocalCenterPost(changed.get());
  EXPECT_EQ(first.calls.size(), 1u);
  EXPECT_EQ(second.calls.size(), 2u);

  NCLocalCenterRemoveObserver(changed.get(), Recorder::record, &second);
  NCLocalCenterRemoveObserver(other.get(), Recorder::record, &second);
  NCLocalCenterPost(changed.get());
  EXPECT_EQ(second.calls.size(), 2u);
  EXPECT_FALSE(NCLocalCenterAddObserver(nullptr, Recorder::record, &first));
  EXPECT_FALSE(NCLocalCenterAddObserver(changed.get(), nullptr, &first));
}

// An observer that removes itself while it runs must not disturb the post.
TEST_F(LocalNotifications, ObserverMayRemoveItselfDuringThePost) {
  struct SelfRemover {
    int calls = 0;
    static void run(PVStringRef name, void *context) {
      auto *self = static_cast<SelfRemover *>(context);
      ++self->calls;
      NCLocalCenterRemoveObserver(name, run, context);
    }
  } remover;
  Recorder after{{}, "after"};
  auto name = text("Once");
  ASSERT_TRUE(NCLocalCenterAddObserver(name.get(), SelfRemover::run, &remover));
  ASSERT_TRUE(NCLocalCenterAddObserver(name.get(), Recorder::record, &after));
  NCLocalCenterPost(name.get());
  NCLocalCenterPost(name.get());
  EXPECT_EQ(remover.calls, 1);
  EXPECT_EQ(after.calls.size(), 2u);
  NCLocalCenterRemoveObserver(name.get(), Recorder::record, &after);
}

TEST_F(LocalNotifications, CaptureRecordsBothCentersInOrder) {
  setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/tarnwick-test-bus", 1);
  PTCaptureStart();
  NCLocalCenterPost(text("VPNChanged").get());
  NCSystemCenterPost(text("com.example.changed").get(), true);
  unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
  ASSERT_EQ(PTNotificationCount(), 2);
  EXPECT_STREQ(PTNotificationName(0), "VPNChanged");
  EXPECT_FALSE(PTNotificationIsSystemWide(0));
  EXPECT_STREQ(PTNotificationName(1), "com.example.changed");
  EXPECT_TRUE(PTNotificationIsSystemWide(1));
}

}  // namespace
}  // namespace tw::test
