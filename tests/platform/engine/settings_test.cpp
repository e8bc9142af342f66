#include "platform/engine/settings.hpp"

#include <gtest/gtest.h>

namespace engine {
namespace {

ConnectionSettings sent() {
  ConnectionSettings s;
  s.set("connection", "id", std::string("Office"));
  s.set("connection", "autoconnect", false);
  s.set("vpn", "data", StringMap{{"gateway", "vpn.example.com"}, {"password-flags", "1"}});
  s.set("proxy", "method", int32_t(1));
  s.set("proxy", "pac-url", std::string("http://wpad/proxy.pac"));
  return s;
}

TEST(ConnectionSettings, HeldWhenEveryKeySentIsThereUnchanged) {
  ConnectionSettings held = sent();
  // NetworkManager adds keys of its own, and leaves out those at their default.
  held.set("connection", "timestamp", uint32_t(1700000000));
  held.set("ipv6", "method", std::string("auto"));
  held.settings["connection"].erase("autoconnect");
  EXPECT_TRUE(sent().heldBy(held));

  const struct {
    const char *what;
    void (*edit)(ConnectionSettings &);
  } edits[] = {
      {"a changed text",
       [](ConnectionSettings &s) { s.set("connection", "id", std::string("Other")); }},
      {"a changed flag", [](ConnectionSettings &s) { s.set("connection", "autoconnect", true); }},
      {"a key added to vpn.data",
       [](ConnectionSettings &s) {
         s.set("vpn", "data",
               StringMap{{"gateway", "vpn.example.com"}, {"password-flags", "1"}, {"user", "x"}});
       }},
      {"a key gone from vpn.data",
       [](ConnectionSettings &s) {
         s.set("vpn", "data", StringMap{{"gateway", "vpn.example.com"}});
       }},
      {"a missing key", [](ConnectionSettings &s) { s.settings["proxy"].erase("pac-url"); }},
      {"a value of another type",
       [](ConnectionSettings &s) { s.set("proxy", "method", uint32_t(1)); }},
  };
  for (const auto &edit : edits) {
    ConnectionSettings changed = held;
    edit.edit(changed);
    EXPECT_FALSE(sent().heldBy(changed)) << edit.what;
  }
}

TEST(ConnectionSettings, AProxyOrRouteNoLongerWantedMustBeGone) {
  ConnectionSettings wanted;
  wanted.set("ipv4", "method", std::string("auto"));
  ConnectionSettings held = wanted;
  EXPECT_TRUE(wanted.heldBy(held));
  held.set("proxy", "method", int32_t(1));
  EXPECT_FALSE(wanted.heldBy(held));
  held.set("proxy", "method", int32_t(0));  // at its default: as good as absent
  held.set("ipv4", "never-default", true);
  EXPECT_FALSE(wanted.heldBy(held));
  held.set("ipv4", "never-default", false);
  EXPECT_TRUE(wanted.heldBy(held));
}

TEST(ConnectionSettings, EqualSettingsAndOnlyThoseShareADigest) {
  EXPECT_EQ(sent().digest(), sent().digest());
  EXPECT_EQ(sent().digest().size(), 64u);
  // Texts that would run together without their lengths stay apart.
  ConnectionSettings a, b;
  a.set("vpn", "data", StringMap{{"ab", "c"}});
  b.set("vpn", "data", StringMap{{"a", "bc"}});
  EXPECT_NE(a.digest(), b.digest());
  ConnectionSettings text, number;
  text.set("proxy", "method", std::string("1"));
  number.set("proxy", "method", int32_t(1));
  EXPECT_NE(text.digest(), number.digest());
}

}  // namespace
}  // namespace engine
