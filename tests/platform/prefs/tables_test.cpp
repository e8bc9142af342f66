// The store's rows as another program could leave them: rows that do not
// hold together fail the open, a service body that does not decode fails
// the first use of that service; neither is ever rewritten.
#include <fstream>

#include "platform/prefs/support.hpp"
#include "support/test_support.hpp"

namespace tw::test {
namespace {

using PreferencesTables = StoreTest;

// A committed store with one service, a member of the current set.
std::string storeWithOneService(const std::string &directory) {
  auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  auto service = createService(prefs.get(), Chain::L2TP, "Member");
  auto set = Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCopyCurrent(prefs.get()));
  ZNNetworkSetAddService(set.get(), service.get());
  ZNPreferencesCommitChanges(prefs.get());
  return directory + "/preferences.db";
}

TEST_F(PreferencesTables, RowsThatDoNotHoldTogetherFailTheOpenAndAreLeftAlone) {
  const std::string database = storeWithOneService(storeDir());
  const std::string original = fileBytes(database);
  const char *damages[] = {
      "DELETE FROM store",
      "UPDATE store SET generation = 0",
      "UPDATE store SET applied = generation + 1",
      "UPDATE store SET current_set = 'gone'",
      "UPDATE store SET generation = 'two'",
      "UPDATE sets SET selected = 'gone'",
      "UPDATE sets SET id = 7",
      "UPDATE members SET service_id = 'gone'",
      "UPDATE members SET set_id = 'gone'",
      "UPDATE services SET enabled = 2",
      "UPDATE services SET body = 42",
      "UPDATE services SET body = X''",  // a body is never empty
      "UPDATE services SET body = ''",
      "UPDATE services SET id = CAST(X'61006263' AS TEXT)",  // U+0000 inside
      "UPDATE services SET name = CAST(X'4f6666006365' AS TEXT)",
      "UPDATE sets SET name = CAST(X'ff' AS TEXT)",  // not UTF-8
      "DROP TABLE members",
  };
  for (const char *damage : damages) {
    std::ofstream(database, std::ios::binary | std::ios::trunc) << original;
    ASSERT_EQ(runSql(database, damage), "") << damage;
    const std::string damaged = fileBytes(database);
    EXPECT_EQ(ZNPreferencesCreateWithStore(storeDir().c_str()), nullptr) << damage;
    EXPECT_EQ(ZNError(), kZNStatusCorruptStore) << damage;
    EXPECT_EQ(fileBytes(database), damaged) << damage;
  }
}

TEST_F(PreferencesTables, UndecodableServiceFailsItsFirstUseAndIsNeverRewritten) {
  const std::string database = storeWithOneService(storeDir());
  const char *bodies[] = {
      "not JSON",
      R"({"interfaces": [], "protocols": []})",
      R"({"interfaces": [{"type": "IPSec", "configuration": [1]}], "protocols": []})",
      R"({"interfaces": [{"type": "IP\u0000Sec"}], "protocols": []})",
      R"({"interfaces": [{"type": "IPSec"}], "protocols": [{"type": "DNS"}, {"type": "DNS"}]})",
  };
  for (const char *body : bodies) {
    ASSERT_EQ(runSql(database, "UPDATE services SET body = '" + std::string(body) + "'"), "");
    auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
    ASSERT_TRUE(prefs) << body;
    EXPECT_EQ(serviceNames(prefs.get()), "Member") << body;
    auto services = Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyAll(prefs.get()));
    auto service = at<ZNNetworkServiceRef>(services.get(), 0);
    EXPECT_EQ(ZNNetworkServiceGetInterface(service), nullptr) << body;
    EXPECT_EQ(ZNError(), kZNStatusCorruptStore) << body;
    EXPECT_EQ(ZNNetworkServiceCopyProtocols(service), nullptr) << body;
    EXPECT_EQ(ZNError(), kZNStatusCorruptStore) << body;

    // The rest of the session works, and its commit leaves that row alone.
    createService(prefs.get(), Chain::L2TP, "Other");
    ASSERT_TRUE(ZNPreferencesCommitChanges(prefs.get())) << body;
    EXPECT_EQ(runSql(database, "SELECT body FROM services WHERE name = 'Member'"), body);
    ASSERT_EQ(runSql(database, "DELETE FROM services WHERE name = 'Other'"), "");
  }
}

// A configuration is decoded when first read: a damaged one fails that read
// alone, and a commit that never read it writes it back as it was. The body
// here is in the earlier layout (interfaces first, no types): it is read
// the same, and written back in the current one.
TEST_F(PreferencesTables, DamagedConfigurationFailsOnlyItsOwnRead) {
  const std::string database = storeWithOneService(storeDir());
  const std::string body =
      R"({"interfaces":[{"configuration":{"Broken": },"extended":{"IPSec":{"A":1}},)"
      R"("type":"PPP"},{"type":"L2TP"},{"type":"IPv4"}],)"
      R"("protocols":[{"configuration":{"PayloadUUID":"u"},"type":"com.velmora.payload"}]})";
  ASSERT_EQ(runSql(database, "UPDATE services SET body = '" + body + "'"), "");
  {
    auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
    auto services = Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyAll(prefs.get()));
    auto service = at<ZNNetworkServiceRef>(services.get(), 0);
    EXPECT_EQ(chainTypes(service), "PPP/L2TP/IPv4");
    ZNNetworkInterfaceRef outer = ZNNetworkServiceGetInterface(service);
    EXPECT_EQ(ZNNetworkInterfaceGetConfiguration(outer), nullptr);
    EXPECT_EQ(ZNError(), kZNStatusCorruptStore);
    EXPECT_TRUE(PVEqual(ZNNetworkInterfaceGetExtendedConfiguration(outer, text("IPSec").get()),
                        dict({{"A", Ref<PVNumberRef>::adopt(PVNumberCreateWithInt64(1))}}).get()));
    // Renamed: the row is written again, its damaged part as it was.
    ASSERT_TRUE(ZNNetworkServiceSetName(service, text("Renamed").get()));
    ASSERT_TRUE(ZNPreferencesCommitChanges(prefs.get()));
  }
  EXPECT_EQ(runSql(database, "SELECT body FROM services"),
            R"({"types":["PPP","L2TP","IPv4"],)"
            R"("protocols":[{"configuration":{"PayloadUUID":"u"},"type":"com.velmora.payload"}],)"
            R"("interfaces":[{"configuration":{"Broken": },"extended":{"IPSec":{"A":1}},)"
            R"("type":"PPP"},{"type":"L2TP"},{"type":"IPv4"}]})");
  EXPECT_EQ(runSql(database, "SELECT name FROM services"), "Renamed");
}

// A service's types and protocols are read from the front of its body, its
// interfaces only when a layer itself is used: damaged interfaces, or types
// they do not agree with, fail that use alone, and a commit writes the body
// back as it was.
TEST_F(PreferencesTables, TypesAndProtocolsAreReadWithoutTheInterfaces) {
  const std::string database = storeWithOneService(storeDir());
  const std::string front =
      R"({"types":["PPP","L2TP","IPv4"],)"
      R"("protocols":[{"configuration":{"PayloadUUID":"u"},"type":"com.velmora.payload"}],)";
  const std::string bodies[] = {
      front + R"("interfaces":[{"type":"PPP"},{"type": )",  // cut short
      front + R"("interfaces":[{"type":"IPSec"},{"type":"IPv4"}]})",
  };
  for (const std::string &body : bodies) {
    ASSERT_EQ(runSql(database, "UPDATE services SET body = '" + body + "'"), "");
    {
      auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
      auto services = Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyAll(prefs.get()));
      auto service = at<ZNNetworkServiceRef>(services.get(), 0);
      EXPECT_EQ(chainTypes(service), "PPP/L2TP/IPv4") << body;
      auto payload = Ref<ZNNetworkProtocolRef>::adopt(
          ZNNetworkServiceCopyProtocol(service, text("com.velmora.payload").get()));
      EXPECT_TRUE(PVEqual(ZNNetworkProtocolGetConfiguration(payload.get()),
                          dict({{"PayloadUUID", "u"}}).get()))
          << body;
      EXPECT_EQ(ZNNetworkInterfaceGetConfiguration(ZNNetworkServiceGetInterface(service)), nullptr)
          << body;
      EXPECT_EQ(ZNError(), kZNStatusCorruptStore) << body;
      // A protocol's change needs the whole body, so it fails too.
      EXPECT_FALSE(ZNNetworkProtocolSetConfiguration(payload.get(), dict({}).get())) << body;
      EXPECT_EQ(ZNError(), kZNStatusCorruptStore) << body;
      ASSERT_TRUE(ZNNetworkServiceSetName(service, text("Renamed").get())) << body;
      ASSERT_TRUE(ZNPreferencesCommitChanges(prefs.get())) << body;
    }
    EXPECT_EQ(runSql(database, "SELECT body FROM services"), body);
  }
}

// A configuration's text is checked as it is decoded: anything a commit
// never writes fails that read, whatever else of it is well-formed.
TEST_F(PreferencesTables, ConfigurationTextACommitNeverWritesIsCorrupt) {
  const std::string database = storeWithOneService(storeDir());
  const std::string deep = std::string(300, '[') + std::string(300, ']');
  const std::string configurations[] = {
      R"({"A": null})",
      R"({"A": 01})",
      R"({"A": 1.})",
      R"({"A": -})",
      R"({"A": +1})",
      R"({"A": .5})",
      R"({"A": nan})",
      R"({"A": 1e999})",
      R"({"A": tru})",
      R"({"A": 1x})",
      R"({"A": [1,]})",
      R"({"A": {"B": 1,}})",
      R"({"A": "\x"})",
      R"({"A": [1}, "B": {"C": 2]})",
      R"({"$data": 5})",
      R"({"$data": "!!"})",
      R"({"$data": "AQ=="})",           // data, not a dictionary
      R"({"A": 9223372036854775808})",  // beyond 64-bit integers
      R"({"A": )" + deep + "}",
  };
  for (const std::string &configuration : configurations) {
    const std::string body = R"({"interfaces":[{"configuration":)" + configuration +
                             R"(,"type":"IPSec"},{"type":"IPv4"}],"protocols":[]})";
    ASSERT_EQ(runSql(database, "UPDATE services SET body = '" + body + "'"), "");
    auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
    auto services = Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyAll(prefs.get()));
    ZNNetworkInterfaceRef outer =
        ZNNetworkServiceGetInterface(at<ZNNetworkServiceRef>(services.get(), 0));
    ASSERT_TRUE(outer) << configuration;
    EXPECT_EQ(ZNNetworkInterfaceGetConfiguration(outer), nullptr) << configuration;
    EXPECT_EQ(ZNError(), kZNStatusCorruptStore) << configuration;
  }
}

// What a commit writes for a service it decoded whole is what it read:
// stored bodies keep one form, whichever build wrote them.
TEST_F(PreferencesTables, ABodyDecodedWholeIsWrittenBackAsItWasRead) {
  const std::string database = storeWithOneService(storeDir());
  {
    auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
    auto services = Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyAll(prefs.get()));
    auto service = at<ZNNetworkServiceRef>(services.get(), 0);
    ZNNetworkInterfaceRef outer = ZNNetworkServiceGetInterface(service);
    ASSERT_TRUE(ZNNetworkInterfaceSetConfiguration(
        outer, dict({{"Server", "vpn.example.com"}, {"Data", bytes("\x01")}}).get()));
    ASSERT_TRUE(ZNNetworkInterfaceSetExtendedConfiguration(
        outer, text("IPSec").get(), dict({{"Method", "SharedSecret"}}).get()));
    ASSERT_TRUE(ZNPreferencesCommitChanges(prefs.get()));
  }
  const std::string written = runSql(database, "SELECT body FROM services");
  EXPECT_EQ(
      written,
      R"({"types":["PPP","L2TP","IPv4"],)"
      R"("protocols":[{"configuration":{},"type":"IPv4"},{"configuration":{},"type":"DNS"},)"
      R"({"configuration":{},"type":"Proxies"}],)"
      R"("interfaces":[{"configuration":{"Data":{"$data":"AQ=="},)"
      R"("Server":"vpn.example.com"},"extended":{"IPSec":{"Method":"SharedSecret"}},)"
      R"("type":"PPP"},{"configuration":{},"type":"L2TP"},{"configuration":{},"type":"IPv4"}]})");
  {
    // Everything read, then the name changed: the same text goes back.
    auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
    auto services = Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyAll(prefs.get()));
    auto service = at<ZNNetworkServiceRef>(services.get(), 0);
    ZNNetworkInterfaceRef outer = ZNNetworkServiceGetInterface(service);
    EXPECT_TRUE(ZNNetworkInterfaceGetConfiguration(outer));
    EXPECT_TRUE(ZNNetworkInterfaceGetExtendedConfiguration(outer, text("IPSec").get()));
    ASSERT_TRUE(ZNNetworkServiceSetName(service, text("Again").get()));
    ASSERT_TRUE(ZNPreferencesCommitChanges(prefs.get()));
  }
  EXPECT_EQ(runSql(database, "SELECT body FROM services"), written);
}

}  // namespace
}  // namespace tw::test
