// What reaches the real system log: the messages the library writes, read
// where syslog(3) sends them (a socket made /dev/log in a child process's
// own mount namespace), each with its priority. The capture the other tests
// read is filled before the level is chosen; this is what the log gets.
#include <syslog.h>

#include <filesystem>

#include "service/session_fixture.hpp"
#include "support/system_log.hpp"
#include "tarnwick/platform/log.h"

namespace tw::test {
namespace {

using SystemLog = SessionTest;

struct Sent {
  int priority;
  std::string text;
  bool operator==(const Sent &) const = default;
};

void PrintTo(const Sent &sent, std::ostream *out) {
  *out << "<" << sent.priority << "> " << sent.text;
}

TEST_F(SystemLog, EachMessageReachesTheLogWithItsPriority) {
  const std::string directory = temporaryDirectory("tarnwick-syslog");
  const std::string path = directory + "/log";
  std::vector<SystemLogMessage> received;
  {
    SystemLogSocket socket(path);
    int status = runInChildProcess([&] {
      if (!routeSystemLogTo(path).empty()) return false;
      // A same-named service replaced: the message written without a level.
      create(kZNEntNetIPSec, "Office");
      create(kZNEntNetL2TP, "Office");
      // A failure: an error.
      PTFailNthCall("ZNNetworkSetAddService", 1);
      Ref<ZNNetworkServiceRef>::adopt(
          JXVPNServiceCreate(kZNEntNetPPTP, text("Other").get(), prefs()));
      // Another session holds the lock: an error.
      auto holder = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
      if (!ZNPreferencesLock(holder.get(), true) || JXVPNPreferencesLock(prefs())) return false;
      SysLogWrite(kSysLogLevelWarning, "a warning: %@", text("%s stays as it is").get());
      return true;
    });
    received = socket.messages();
    if (status != 0 && received.empty()) {
      std::filesystem::remove_all(directory);
      GTEST_SKIP() << "cannot make /dev/log a socket of the test's in a mount namespace";
    }
    ASSERT_EQ(status, 0);
  }
  std::filesystem::remove_all(directory);

  std::vector<Sent> sent;
  for (const SystemLogMessage &message : received) sent.push_back({message.priority, message.text});
  EXPECT_EQ(sent, (std::vector<Sent>{
                      {LOG_USER | LOG_NOTICE,
                       "Boolean __JXVPNServiceAddToAllSets(ZNNetworkServiceRef, ZNPreferencesRef): "
                       "This service(Office) exists, replacing it"},
                      {LOG_USER | LOG_ERR,
                       "VPN: couldn't add service failure planned through the testing interface"},
                      {LOG_USER | LOG_ERR,
                       "Failed to lock ZNPreferences the preferences are locked by another "
                       "session"},
                      {LOG_USER | LOG_WARNING, "a warning: %s stays as it is"},
                  }));
}

}  // namespace
}  // namespace tw::test
