#include <gtest/gtest.h>

#include "config/internal.hpp"
#include "support/services.hpp"

namespace {

using tw::test::text;

TEST(ConfigurationTypeClassifier, PlacesKeyConstantsInTheirLayer) {
  struct Case {
    PVStringRef key;
    PVStringRef type;
  } cases[] = {
      {kZNPropNetIPSecSharedSecret, kZNEntNetIPSec},
      {kZNPropNetIPSecLocalIdentifier, kZNEntNetIPSec},
      {kZNPropNetIPSecOnDemandMatchDomainsNever, kZNEntNetIPSec},
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
  }
}

TEST(ConfigurationTypeClassifier, MatchesByIdentityNotByText) {
  // Equal text, other objects: a caller's string, and constants of another
  // layer or of a value.
  EXPECT_EQ(__JXVPNGetConfigurationTypeFromKey(text("SharedSecret").get()), nullptr);
  EXPECT_EQ(__JXVPNGetConfigurationTypeFromKey(text("OnDemandSupported").get()), nullptr);
  EXPECT_EQ(__JXVPNGetConfigurationTypeFromKey(text("AuthName").get()), nullptr);
  EXPECT_EQ(__JXVPNGetConfigurationTypeFromKey(kZNValNetIPSecAuthenticationMethodSharedSecret),
            nullptr);
  EXPECT_EQ(__JXVPNGetConfigurationTypeFromKey(kZNPropNetIPSecOnDemandEnabled), kZNEntNetIPSec);
  EXPECT_EQ(__JXVPNGetConfigurationTypeFromKey(kZNPropNetVPNOnDemandEnabled), kZNEntNetVPN);
}

TEST(ConfigurationTypeClassifier, LeavesOtherKeysUnplacedAndNeverNamesEAP) {
  for (PVStringRef key :
       {kJXVPNTypeKey, kJXPayloadIdentifierKey, kZNPropNetProxiesHTTPProxy,
        kJXVPNPropNetProxiesHTTPProxyTypeManual, kZNValNetPPPAuthProtocolEAP, kZNEntNetIPSec,
        kZNPropUserDefinedName, static_cast<PVStringRef>(nullptr)}) {
    EXPECT_EQ(__JXVPNGetConfigurationTypeFromKey(key), nullptr);
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
