#include <gtest/gtest.h>

#include "support/test_support.hpp"
#include "tarnwick.h"

namespace {

using tw::test::text;

JXVPNValueKind kindOf(const char *key, const char *type) {
  return JXVPNGetValueKindForKey(text(key).get(), text(type).get());
}

TEST(ValueKinds, KnownKeysHaveTheirKindInTheirConfigurationOnly) {
  EXPECT_EQ(kindOf("AuthName", "PPP"), kJXVPNValueKindString);
  EXPECT_EQ(kindOf("LCPEchoInterval", "PPP"), kJXVPNValueKindNumber);
  EXPECT_EQ(kindOf("CCPEnabled", "PPP"), kJXVPNValueKindFlag);
  EXPECT_EQ(kindOf("LocalCertificate", "IPSec"), kJXVPNValueKindData);
  EXPECT_EQ(kindOf("OnDemandMatchDomainsNever", "VPN"), kJXVPNValueKindStringArray);
  EXPECT_EQ(kindOf("HTTPPort", "Proxies"), kJXVPNValueKindNumber);
  EXPECT_EQ(kindOf("PayloadUUID", "com.velmora.payload"), kJXVPNValueKindString);
  // A key of another layer, a misspelt key, a configuration of no known keys.
  EXPECT_EQ(kindOf("AuthName", "IPSec"), kJXVPNValueKindUnknown);
  EXPECT_EQ(kindOf("AuthNmae", "PPP"), kJXVPNValueKindUnknown);
  EXPECT_EQ(kindOf("AuthName", "EAP"), kJXVPNValueKindUnknown);
  EXPECT_EQ(JXVPNGetValueKindForKey(nullptr, kZNEntNetPPP), kJXVPNValueKindUnknown);
  EXPECT_EQ(JXVPNGetValueKindForKey(text("AuthName").get(), nullptr), kJXVPNValueKindUnknown);
}

// Every key the classifiers place has a kind where they place it, so that a
// key a caller can set is never taken for a misspelt one.
TEST(ValueKinds, EveryClassifiedKeyHasAKind) {
  const char *const keys[] = {
      "LocalIdentifier", "LocalIdentifierType", "AuthenticationMethod", "SharedSecret",
      "SharedSecretEncryption", "LocalCertificate", "IPSecSharedSecret",
      "IPSecSharedSecretEncryption", "Transport", "XAuthName", "XAuthPassword",
      "XAuthPasswordEncryption", "XAuthEnabled", "OnDemandEnabled", "OnDemandMatchDomainsAlways",
      "OnDemandMatchDomainsOnRetry", "OnDemandMatchDomainsNever", "OnDemandSupported",
      "PromptForVPNPIN", "OverridePrimary", "ACSPEnabled", "ConnectTime", "DeviceLastCause",
      "DialOnDemand", "DisconnectOnFastUserSwitch", "DisconnectOnIdle", "DisconnectOnIdleTimer",
      "DisconnectOnLogout", "DisconnectOnSleep", "DisconnectTime", "IdleReminderTimer",
      "IdleReminder", "LastCause", "Logfile", "Plugins", "RetryConnectTime", "SessionTimer",
      "Status", "UseSessionTimer", "VerboseLogging", "AuthEAPPlugins", "AuthName", "AuthPassword",
      "AuthPasswordEncryption", "AuthPrompt", "AuthProtocol", "CommAlternateRemoteAddress",
      "CommConnectDelay", "CommDisplayTerminalWindow", "CommRedialCount", "CommRedialEnabled",
      "CommRedialInterval", "CommRemoteAddress", "CommTerminalScript", "CommUseTerminalScript",
      "CCPEnabled", "CCPMPPE40Enabled", "CCPMPPE128Enabled", "IPCPCompressionVJ",
      "IPCPUsePeerDNS", "LCPEchoEnabled", "LCPEchoFailure", "LCPEchoInterval",
      "LCPCompressionACField", "LCPCompressionPField", "LCPMRU", "LCPMTU", "LCPReceiveACCM",
      "LCPTransmitACCM", "HTTPProxy", "HTTPProxyPassword", "ExceptionsList", "PayloadRoot"};
  int classified = 0;
  for (const char *key : keys) {
    auto keyText = text(key);
    for (PVStringRef type : {kZNEntNetIPSec, kZNEntNetPPP, kZNEntNetVPN}) {
      PVStringRef constant = JXVPNGetConfigurationKeyConstant(keyText.get(), type);
      if (!constant) continue;
      ++classified;
      EXPECT_NE(JXVPNGetValueKindForKey(constant, type), kJXVPNValueKindUnknown) << key;
    }
    if (PVStringRef protocol = JXVPNGetProtocolTypeForKey(keyText.get())) {
      ++classified;
      EXPECT_NE(JXVPNGetValueKindForKey(keyText.get(), protocol), kJXVPNValueKindUnknown) << key;
    }
  }
  EXPECT_GE(classified, 76);
}

}  // namespace
