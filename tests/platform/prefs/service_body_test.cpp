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

// Every kind of value a configuration holds, at its limits.
Ref<PVDictionaryRef> configuration() {
  auto integer = [](int64_t value) {
    return Ref<PVNumberRef>::adopt(PVNumberCreateWithInt64(value));
  };
  auto floating = [](double value) {
    return Ref<PVNumberRef>::adopt(PVNumberCreateWithDouble(value));
  };
  auto integers = array(
      {integer(INT64_MIN).get(), integer(-1).get(), integer(0).get(), integer(INT64_MAX).get()});
  auto floats = array({floating(0.1).get(), floating(-2.5e-300).get(), floating(1.0).get(),
                       floating(1.7976931348623157e308).get()});
  return dict({{"Server", "vpn.example.com"},
               {"Quoted \"key\"", "a \"b\" \\c\\ \u00e9 \xf0\x9f\x94\x91 \x01"},
               {"Nested", dict({{"Data", bytes(std::string("\0\xFF", 2))},
                                {"Empty", bytes("")},
                                {"Lists", array({array({}).get(), dict({}).get()})}})},
               {"Integers", integers},
               {"Floats", floats},
               {"$data", "beside other keys, a key like any other"},
               {"On", kPVBooleanTrue},
               {"Off", kPVBooleanFalse}});
}

// What was read holds integers as integers, floating numbers as floating,
// and the one true and false objects, which callers compare by identity.
bool keepsNumberKindsAndBooleans(PVDictionaryRef read) {
  auto named = [&](const char *key) { return PVDictionaryGetValue(read, text(key).get()); };
  auto integers = static_cast<PVArrayRef>(named("Integers"));
  auto floats = static_cast<PVArrayRef>(named("Floats"));
  for (PVIndex i = 0; i < 4; ++i) {
    if (PVNumberIsFloatType(at<PVNumberRef>(integers, i)) ||
        !PVNumberIsFloatType(at<PVNumberRef>(floats, i))) {
      return false;
    }
  }
  return named("On") == kPVBooleanTrue && named("Off") == kPVBooleanFalse;
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
         keepsNumberKindsAndBooleans(plain) &&
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
