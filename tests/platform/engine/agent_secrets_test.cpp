// What the secret agent answers for a connection: the store's service it
// was made for, and each secret from the credential that answers it.
#include "platform/engine/agent_secrets.hpp"

#include <gtest/gtest.h>

#include <fstream>

#include "platform/engine/name_uuid.hpp"
#include "support/services.hpp"

namespace tw::test {
namespace {

using engine::Credential;

class AgentSecrets : public ServiceTest {
 protected:
  // An L2TP service with a shared secret, committed.
  ZNNetworkServiceRef office() {
    ZNNetworkServiceRef service = makeService(Chain::L2TP, "Office");
    ZNNetworkInterfaceRef ppp = ZNNetworkServiceGetInterface(service);
    EXPECT_TRUE(ZNNetworkInterfaceSetConfiguration(
        ppp, dict({{kZNPropNetPPPCommRemoteAddress, "vpn.example.com"},
                   {kZNPropNetPPPAuthName, "alice"}})
                 .get()));
    EXPECT_TRUE(ZNNetworkInterfaceSetExtendedConfiguration(
        ppp, kZNEntNetIPSec,
        dict({{kZNPropNetIPSecSharedSecretEncryption, kZNValNetIPSecSharedSecretEncryptionCoffer}})
            .get()));
    EXPECT_TRUE(ZNPreferencesCommitChanges(prefs_.get()));
    return service;
  }
  static std::string uuidOf(ZNNetworkServiceRef service) {
    return engine::nameUuid(textOf(ZNNetworkServiceGetServiceID(service)));
  }

  // Answers from `stored` (by credential; absent: none), and notes each
  // request with the identifier of the service it was for.
  engine::CredentialSource source(std::map<Credential, std::string> stored) {
    return [this, stored](ZNNetworkServiceRef service, Credential credential) {
      asked.push_back(textOf(ZNNetworkServiceGetServiceID(service)) + " " +
                      std::to_string(static_cast<int>(credential)));
      auto found = stored.find(credential);
      return found == stored.end() ? Ref<PVStringRef>() : text(found->second);
    };
  }

  std::vector<std::string> asked;
};

TEST_F(AgentSecrets, EachSecretOfTheServiceComesFromItsCredential) {
  ZNNetworkServiceRef service = office();
  std::string id = textOf(ZNNetworkServiceGetServiceID(service));
  engine::SecretAnswer answer = engine::answerSecrets(
      storeDir(), uuidOf(service),
      source({{Credential::accountPassword, "pw-1"}, {Credential::sharedSecret, "psk-2"}}));
  EXPECT_TRUE(answer.ours);
  EXPECT_EQ(answer.service, "Office");
  EXPECT_EQ(answer.secrets,
            (std::map<std::string, std::string>{{"password", "pw-1"}, {"ipsec-psk", "psk-2"}}));
  EXPECT_TRUE(answer.missing.empty());
  EXPECT_EQ(asked, (std::vector<std::string>{id + " 1", id + " 0"}));
  EXPECT_EQ(engine::serviceOf(storeDir(), uuidOf(service)), "Office");
}

TEST_F(AgentSecrets, AbsentAndEmptyCredentialsAreLeftOut) {
  ZNNetworkServiceRef service = office();
  engine::SecretAnswer answer =
      engine::answerSecrets(storeDir(), uuidOf(service), source({{Credential::sharedSecret, ""}}));
  EXPECT_TRUE(answer.ours);
  EXPECT_TRUE(answer.secrets.empty());
  EXPECT_EQ(answer.missing, (std::vector<std::string>{"ipsec-psk", "password"}));
}

TEST_F(AgentSecrets, OnlyTheCommittedExpressibleServicesOfTheStoreAreAnswered) {
  std::string officeUuid = uuidOf(office());
  // Committed, but no plugin can express it (no XAuth).
  ZNNetworkServiceRef gateway = makeService(Chain::IPSec, "Gateway");
  ASSERT_TRUE(ZNPreferencesCommitChanges(prefs_.get()));
  // Not committed: the agent reads the store, not this session.
  ASSERT_TRUE(ZNNetworkServiceRemove(services_.front().get()));
  ZNNetworkServiceRef later = makeService(Chain::PPTP, "Later");

  for (ZNNetworkServiceRef which : {gateway, later}) {
    engine::SecretAnswer answer = engine::answerSecrets(
        storeDir(), uuidOf(which), source({{Credential::accountPassword, "x"}}));
    EXPECT_FALSE(answer.ours);
    EXPECT_TRUE(answer.secrets.empty());
    EXPECT_EQ(engine::serviceOf(storeDir(), uuidOf(which)), std::nullopt);
  }
  for (const std::string &uuid :
       {std::string("0b9a4d6e-1111-5222-8333-444455556666"), std::string("")}) {
    EXPECT_FALSE(engine::answerSecrets(storeDir(), uuid, source({})).ours);
  }
  EXPECT_TRUE(asked.empty());
  // The removal is not committed: the store still has the office.
  EXPECT_TRUE(engine::answerSecrets(storeDir(), officeUuid, source({})).ours);
}

TEST_F(AgentSecrets, AVendorPluginsSecretsAreTheOnesItsTableNames) {
  ZNNetworkServiceRef service = makeService(Chain::Vendor, "Vendor");
  ASSERT_TRUE(ZNPreferencesCommitChanges(prefs_.get()));
  std::ofstream(storeDir() + "/vendor-plugins.conf") << "[" << kVendorType << "]\n"
                                                     << "service-type = org.example.vpn\n"
                                                        "secret = password\n"
                                                        "secret.group-password = shared-secret\n"
                                                        "secret.proxy = proxy-password\n";
  engine::SecretAnswer answer = engine::answerSecrets(storeDir(), uuidOf(service),
                                                      source({{Credential::accountPassword, "a"},
                                                              {Credential::sharedSecret, "s"},
                                                              {Credential::proxyPassword, "p"}}));
  EXPECT_EQ(answer.secrets, (std::map<std::string, std::string>{
                                {"group-password", "s"}, {"password", "a"}, {"proxy", "p"}}));
}

}  // namespace
}  // namespace tw::test
