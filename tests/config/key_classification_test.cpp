#include <gtest/gtest.h>

#include "config/internal.hpp"
#include "support/test_support.hpp"
#include "tarnwick.h"

namespace {

using tw::test::text;
using tw::test::textOf;

TEST(ConfigurationTypeClassifier, PlacesKeyConstantsInTheirLayer) {
  struct Case {
    PVStringRef key;
    PVStringRef type;
  } cases[] = {
      {kZNPropNetIPSecSharedSecret, kZNEntNetIPSec},
      {kZNPropNetIPSecLocalIdentifier, kZNEntNetIPSec},
      {kZNPropNetIPSecOnDemandMatchDomainsNever, kZNEntNetIPSec},
      {kZNPropNetIPSecOnDemandEnabled, kZNEntNetIPSec},
      // The L2TP shared-secret keys are kept with IPSec.
      {kZNPropNetL2TPIPSecSharedSecret, kZNEntNetIPSec},
      {kZNPropNetL2TPTransport, kZNEntNetIPSec},
      {kJXVPNPromptForPinKey, kZNEntNetIPSec},
      {kZNPropNetPPPOverridePrimary, kZNEntNetPPP},
      {kZNPropNetPPPAuthName, kZNEntNetPPP},
      {kZNPropNetPPPLCPTransmitACCM, kZNEntNetPPP},
      {kZNPropNetVPNAuthenticationMethod, kZNEntNetVPN},
      {kZNPropNetVPNLocalCertificate, kZNEntNetVPN},
      {kZNPropNetVPNOnDemandEnabled, kZNEntNetVPN},
      // One object under two names; the IPSec set is asked first.
      {kJXVPNPropNetIPSecOnDemandSupported, kZNEntNetIPSec},
      {kJXVPNPropNetVPNOnDemandSupported, kZNEntNetIPSec},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(PVStringGetCStringPtr(c.key));
    // The platform's constant object itself, not just equal text.
    EXPECT_EQ(__JXVPNGetConfigurationTypeFromKey(c.key), c.type);
    // Found again from its text, for the layer that holds it.
    auto typed = text(PVStringGetCStringPtr(c.key));
    EXPECT_EQ(__JXVPNGetConfigurationTypeFromKey(
                  JXVPNGetConfigurationKeyConstant(typed.get(), c.type)),
              c.type);
  }
}

// Where two layers have a key of one text, the type chooses; without one,
// the first of IPSec, PPP and VPN.
TEST(ConfigurationTypeClassifier, FindsTheConstantOfATypedKey) {
  auto method = text("AuthenticationMethod");
  EXPECT_EQ(JXVPNGetConfigurationKeyConstant(method.get(), kZNEntNetVPN),
            kZNPropNetVPNAuthenticationMethod);
  EXPECT_EQ(JXVPNGetConfigurationKeyConstant(method.get(), nullptr),
            kZNPropNetIPSecAuthenticationMethod);
  EXPECT_EQ(JXVPNGetConfigurationKeyConstant(method.get(), kZNEntNetPPP), nullptr);
  EXPECT_EQ(JXVPNGetConfigurationKeyConstant(text("AuthName").get(), nullptr),
            kZNPropNetPPPAuthName);
  EXPECT_EQ(JXVPNGetConfigurationKeyConstant(text("NoSuchKey").get(), nullptr), nullptr);
  EXPECT_EQ(JXVPNGetConfigurationKeyConstant(nullptr, nullptr), nullptr);
  EXPECT_EQ(JXVPNGetProtocolTypeForKey(text("HTTPProxy").get()), kZNNetworkProtocolTypeProxies);
  EXPECT_EQ(JXVPNGetProtocolTypeForKey(method.get()), nullptr);
}

TEST(ConfigurationTypeClassifier, LeavesOtherKeysAndEqualTextUnplacedAndNeverNamesEAP) {
  // Equal text, other objects: a caller's strings, and a value constant.
  auto sharedSecret = text("SharedSecret"), onDemand = text("OnDemandSupported"),
       authName = text("AuthName");
  for (PVStringRef key :
       {sharedSecret.get(), onDemand.get(), authName.get(),
        kZNValNetIPSecAuthenticationMethodSharedSecret, kJXVPNTypeKey, kJXPayloadIdentifierKey,
        kZNPropNetProxiesHTTPProxy, kJXVPNPropNetProxiesHTTPProxyTypeManual,
        kZNValNetPPPAuthProtocolEAP, kZNEntNetIPSec, kZNPropUserDefinedName,
        static_cast<PVStringRef>(nullptr)}) {
    EXPECT_EQ(__JXVPNGetConfigurationTypeFromKey(key), nullptr) << textOf(key);
  }
}

TEST(ProtocolTypeClassifier, MatchesByEqualText) {
  struct Case {
    const char *key;
    PVStringRef type;
  } cases[] = {
      {"OverridePrimary", kZNEntNetIPv4},
      {"SOCKSProxy", kZNNetworkProtocolTypeProxies},
      {"HTTPProxyType", kZNNetworkProtocolTypeProxies},
      {"HTTPProxyPassword", kZNNetworkProtocolTypeProxies},
      // Values of the proxy type, listed as keys on purpose.
      {"None", kZNNetworkProtocolTypeProxies},
      {"Automatic", kZNNetworkProtocolTypeProxies},
      {"Manual", kZNNetworkProtocolTypeProxies},
      {"PayloadUUID", kJXVPNProtocolTypePayload},
      {"PayloadOrganization", kJXVPNProtocolTypePayload},
      {"PayloadRoot", kJXVPNProtocolTypePayload},
      {"PayloadIdentifier", nullptr},
      {"VPNType", nullptr},
      {"AuthName", nullptr},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.key);
    EXPECT_EQ(__JXVPNGetProtocolConfigurationTypeFromKey(text(c.key).get()), c.type);
  }
  EXPECT_EQ(__JXVPNGetProtocolConfigurationTypeFromKey(kZNPropNetProxiesHTTPSPort),
            kZNNetworkProtocolTypeProxies);
  // Independent of the layer classifier: this PPP layer key is an IPv4 key here.
  EXPECT_EQ(__JXVPNGetProtocolConfigurationTypeFromKey(kZNPropNetPPPOverridePrimary),
            kZNEntNetIPv4);
  EXPECT_EQ(__JXVPNGetProtocolConfigurationTypeFromKey(kZNPropNetIPSecSharedSecret), nullptr);
  EXPECT_EQ(__JXVPNGetProtocolConfigurationTypeFromKey(nullptr), nullptr);
}

}  // namespace
