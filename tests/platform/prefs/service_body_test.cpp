// What a commit writes is what a new process reads: every part of a
// service and of a set. Each kind of value goes through the encoding the
// values tests round-trip.
#include "platform/prefs/support.hpp"
#include "support/test_support.hpp"

namespace tw::test {
namespace {

using ServiceBody = ServiceTest;

// An entity type the body stores as an escaped key.
constexpr char kEntity[] = "EAP \"quoted\" \\";

// The same every time it is built, in either process. Quotes and
// backslashes are escaped in the stored text, which the reader steps over.
Ref<PVDictionaryRef> configuration() {
  return dict({{"Server", "vpn.example.com"},
               {"Quoted \"key\"", "a \"b\" \\c\\"},
               {"Nested", dict({{"Data", bytes(std::string("\0\xFF", 2))}})}});
}

bool readsBackEveryPart() {
  auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  auto services = Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyAll(prefs.get()));
  if (PVArrayGetCount(services.get()) != 1) return false;
  auto service = at<ZNNetworkServiceRef>(services.get(), 0);
  auto expected = configuration();
  ZNNetworkInterfaceRef outer = ZNNetworkServiceGetInterface(service);
  PVDictionaryRef plain = ZNNetworkInterfaceGetConfiguration(outer);
  auto protocol = Ref<ZNNetworkProtocolRef>::adopt(
      ZNNetworkServiceCopyProtocol(service, kZNNetworkProtocolTypeProxies));
  auto set = Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCopyCurrent(prefs.get()));
  auto selected = Ref<ZNNetworkServiceRef>::adopt(ZNNetworkSetCopySelectedVPNService(set.get()));
  auto members = Ref<PVArrayRef>::adopt(ZNNetworkSetCopyServices(set.get()));
  return chainTypes(service) == "PPP/L2TP/IPv4" && PVEqual(plain, expected.get()) &&
         PVEqual(ZNNetworkInterfaceGetExtendedConfiguration(outer, text(kEntity).get()),
                 expected.get()) &&
         PVEqual(ZNNetworkProtocolGetConfiguration(protocol.get()), expected.get()) &&
         textOf(ZNNetworkServiceGetName(service)) == "Everything" &&
         !ZNNetworkServiceGetEnabled(service) && PVEqual(selected.get(), service) &&
         PVArrayGetCount(members.get()) == 1 && textOf(ZNNetworkSetGetName(set.get())) == "Renamed";
}

TEST_F(ServiceBody, EveryPartOfTheSessionSurvivesCommitIntoANewProcess) {
  auto service = createService(prefs_.get(), Chain::L2TP, "Everything");
  auto values = configuration();
  ZNNetworkInterfaceRef outer = ZNNetworkServiceGetInterface(service.get());
  ASSERT_TRUE(ZNNetworkInterfaceSetConfiguration(outer, values.get()));
  ASSERT_TRUE(ZNNetworkInterfaceSetExtendedConfiguration(outer, text(kEntity).get(), values.get()));
  auto protocol = Ref<ZNNetworkProtocolRef>::adopt(
      ZNNetworkServiceCopyProtocol(service.get(), kZNNetworkProtocolTypeProxies));
  ASSERT_TRUE(ZNNetworkProtocolSetConfiguration(protocol.get(), values.get()));
  ASSERT_TRUE(ZNNetworkServiceSetEnabled(service.get(), false));
  auto set = Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCopyCurrent(prefs_.get()));
  ASSERT_TRUE(ZNNetworkSetAddService(set.get(), service.get()));
  ASSERT_TRUE(ZNNetworkSetSetSelectedVPNService(set.get(), service.get()));
  ASSERT_TRUE(ZNNetworkSetSetName(set.get(), text("Renamed").get()));
  EXPECT_FALSE(readsBackEveryPart());  // not committed yet

  ASSERT_TRUE(ZNPreferencesCommitChanges(prefs_.get()));
  EXPECT_EQ(runInChildProcess(readsBackEveryPart), 0);
}

}  // namespace
}  // namespace tw::test
