// What a tool process loads: libcrypto only for a command that handles a
// certificate, libsystemd only when a system bus may answer. The dynamic
// loader names each file it loads on standard error under LD_DEBUG=files.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "cli/tool_runner.hpp"

namespace tw::test {
namespace {

using Startup = CliTest;

bool loaded(const ToolResult &result, const std::string &library) {
  return result.err.find("file=" + library) != std::string::npos;
}

TEST_F(Startup, LibrariesAreLoadedOnlyWhenACommandNeedsThem) {
  const std::string noBus = "DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + storeDir() + "/no-bus";
  auto install = [&](const std::string &payload, const std::string &bus) {
    ToolResult result = toolWithoutStore({"--store", storeDir(), "install", example(payload)},
                                         {"LD_DEBUG=files", bus});
    EXPECT_EQ(result.exitCode, 0) << payload;
    return result;
  };

  ToolResult plain = install("pptp.json", noBus);
  EXPECT_FALSE(loaded(plain, "libcrypto.so")) << plain.err;
  EXPECT_FALSE(loaded(plain, "libsystemd.so")) << plain.err;

  ToolResult certificate = install("ipsec-certificate.json", noBus);
  EXPECT_TRUE(loaded(certificate, "libcrypto.so")) << certificate.err;
  EXPECT_FALSE(loaded(certificate, "libsystemd.so")) << certificate.err;

  // A socket at the bus's path (refusing connections): the notification
  // the install posts is tried, and so needs libsystemd.
  const std::string path = storeDir() + "/bus";
  int listener = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_GE(listener, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
  ToolResult reached = install("l2tp.json", "DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + path);
  close(listener);
  EXPECT_TRUE(loaded(reached, "libsystemd.so")) << reached.err;
}

}  // namespace
}  // namespace tw::test
