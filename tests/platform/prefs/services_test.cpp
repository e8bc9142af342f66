// Services and their protocols.
#include <regex>

#include "platform/prefs/support.hpp"
#include "support/test_support.hpp"

namespace tw::test {
namespace {

using NetworkService = ServiceTest;

bool isEmptyDictionary(PVDictionaryRef dictionary) {
  return PVGetTypeID(dictionary) == PVDictionaryGetTypeID() &&
         PVDictionaryGetCount(dictionary) == 0;
}

std::string protocolTypes(ZNNetworkServiceRef service) {
  auto protocols = Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyProtocols(service));
  std::string types;
  for (PVIndex i = 0; i < PVArrayGetCount(protocols.get()); ++i) {
    auto protocol = at<ZNNetworkProtocolRef>(protocols.get(), i);
    types += (i ? "," : "") + textOf(ZNNetworkProtocolGetProtocolType(protocol));
  }
  return types;
}

TEST_F(NetworkService, DefaultConfigurationGivesEveryLayerAndThreeProtocolsEmptyConfigurations) {
  auto service = createService(prefs_.get(), Chain::L2TP, "Defaults");
  for (ZNNetworkInterfaceRef layer = ZNNetworkServiceGetInterface(service.get()); layer;
       layer = ZNNetworkInterfaceGetInterface(layer)) {
    EXPECT_TRUE(isEmptyDictionary(ZNNetworkInterfaceGetConfiguration(layer)));
  }
  EXPECT_EQ(protocolTypes(service.get()), "IPv4,DNS,Proxies");
  for (PVStringRef type :
       {kZNNetworkProtocolTypeIPv4, kZNNetworkProtocolTypeDNS, kZNNetworkProtocolTypeProxies}) {
    auto protocol =
        Ref<ZNNetworkProtocolRef>::adopt(ZNNetworkServiceCopyProtocol(service.get(), type));
    EXPECT_TRUE(isEmptyDictionary(ZNNetworkProtocolGetConfiguration(protocol.get())));
  }
}

TEST_F(NetworkService, AddedProtocolHasNoConfigurationAndItsTypeIsAddedOnce) {
  auto service = createService(prefs_.get(), Chain::L2TP, "Protocols");
  auto payload = text("com.example.payload");
  ASSERT_TRUE(ZNNetworkServiceAddProtocolType(service.get(), payload.get()));
  EXPECT_FALSE(ZNNetworkServiceAddProtocolType(service.get(), text("com.example.payload").get()));
  EXPECT_EQ(ZNError(), kZNStatusInvalidArgument);
  EXPECT_EQ(protocolTypes(service.get()), "IPv4,DNS,Proxies,com.example.payload");

  auto protocol =
      Ref<ZNNetworkProtocolRef>::adopt(ZNNetworkServiceCopyProtocol(service.get(), payload.get()));
  EXPECT_EQ(ZNNetworkProtocolGetConfiguration(protocol.get()), nullptr);
  EXPECT_EQ(ZNNetworkServiceCopyProtocol(service.get(), text("Missing").get()), nullptr);
  EXPECT_EQ(ZNError(), kZNStatusNoSuchObject);

  auto configuration = dict({{"PayloadUUID", "1234"}});
  ASSERT_TRUE(ZNNetworkProtocolSetConfiguration(protocol.get(), configuration.get()));
  // The configuration belongs to the session, not to the handle.
  PVDictionaryRef stored = ZNNetworkProtocolGetConfiguration(protocol.get());
  protocol = {};
  configuration = {};
  EXPECT_EQ(
      textOf(static_cast<PVStringRef>(PVDictionaryGetValue(stored, text("PayloadUUID").get()))),
      "1234");
  auto again =
      Ref<ZNNetworkProtocolRef>::adopt(ZNNetworkServiceCopyProtocol(service.get(), payload.get()));
  ASSERT_TRUE(ZNNetworkProtocolSetConfiguration(again.get(), nullptr));
  EXPECT_EQ(ZNNetworkProtocolGetConfiguration(again.get()), nullptr);
}

TEST_F(NetworkService, IdentifiersAreRandomUUIDsAndHandlesOfOneServiceAreEqual) {
  auto first = createService(prefs_.get(), Chain::L2TP, "One");
  auto second = createService(prefs_.get(), Chain::L2TP, "Two");
  std::string id = textOf(ZNNetworkServiceGetServiceID(first.get()));
  // Lower-case 8-4-4-4-12 hex, version 4, RFC 4122 variant.
  EXPECT_TRUE(std::regex_match(
      id, std::regex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}")))
      << id;
  EXPECT_NE(id, textOf(ZNNetworkServiceGetServiceID(second.get())));

  auto copy =
      Ref<ZNNetworkServiceRef>::adopt(ZNNetworkServiceCopy(prefs_.get(), text(id.c_str()).get()));
  EXPECT_TRUE(PVEqual(copy.get(), first.get()));
  EXPECT_EQ(PVHash(copy.get()), PVHash(first.get()));
  EXPECT_FALSE(PVEqual(copy.get(), second.get()));
}

TEST_F(NetworkService, RemovedServiceHandleStaysValidAndReportsNoSuchObject) {
  auto service = createService(prefs_.get(), Chain::L2TP, "Removed");
  PVStringRef id = ZNNetworkServiceGetServiceID(service.get());
  const std::string idText = textOf(id);

  ASSERT_TRUE(ZNNetworkServiceRemove(service.get()));
  EXPECT_EQ(textOf(id), idText);  // a borrowed ID read before removal stays readable
  EXPECT_EQ(ZNNetworkServiceGetServiceID(service.get()), nullptr);
  EXPECT_EQ(ZNError(), kZNStatusNoSuchObject);
  EXPECT_EQ(ZNNetworkServiceGetName(service.get()), nullptr);
  EXPECT_EQ(ZNNetworkServiceGetInterface(service.get()), nullptr);
  EXPECT_EQ(ZNNetworkServiceCopyProtocols(service.get()), nullptr);
  EXPECT_FALSE(ZNNetworkServiceSetName(service.get(), text("Back").get()));
  EXPECT_FALSE(ZNNetworkServiceRemove(service.get()));
  EXPECT_EQ(ZNError(), kZNStatusNoSuchObject);
  EXPECT_EQ(serviceNames(prefs_.get()), "");
}

}  // namespace
}  // namespace tw::test
