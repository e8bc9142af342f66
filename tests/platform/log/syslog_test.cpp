// The system log as a test sees it through the capture.
#include "support/test_support.hpp"
#include "tarnwick/platform/log.h"
#include "tarnwick/platform/testing.h"

namespace tw::test {
namespace {

using SystemLog = StoreTest;

TEST_F(SystemLog, CaptureKeepsEveryMessageInOrderWithItsLevel) {
  SysLogWrite(kSysLogLevelError, "before the capture");
  PTCaptureStart();
  auto name = text("Office VPN");
  auto number = Ref<PVNumberRef>::adopt(PVNumberCreateWithInt64(42));
  SysLogWrite(kSysLogLevelError, "VPN: couldn't add service %s", "no such object");
  SysLogWriteDefault("%s: This service(%@) exists, replacing it", "f()", name.get());
  SysLogWrite(kSysLogLevelError, "%@ and %@", number.get(), nullptr);

  ASSERT_EQ(PTLogMessageCount(), 3);
  EXPECT_EQ(PTLogMessageLevel(0), kSysLogLevelError);
  EXPECT_STREQ(PTLogMessageText(0), "VPN: couldn't add service no such object");
  EXPECT_EQ(PTLogMessageLevel(1), kPTNoLevel);
  EXPECT_STREQ(PTLogMessageText(1), "f(): This service(Office VPN) exists, replacing it");
  EXPECT_STREQ(PTLogMessageText(2), "42 and (null)");
  EXPECT_EQ(PTLogMessageText(3), nullptr);

  PTReset();
  SysLogWrite(kSysLogLevelError, "after the reset");
  EXPECT_EQ(PTLogMessageCount(), 0);
}

TEST_F(SystemLog, NullFormatWritesNothing) {
  PTCaptureStart();
  SysLogWrite(kSysLogLevelError, nullptr);
  SysLogWriteDefault(nullptr);
  EXPECT_EQ(PTLogMessageCount(), 0);
}

}  // namespace
}  // namespace tw::test
