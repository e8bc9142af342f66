// The tool's transaction, in-process against the static library, whose
// testing interface makes one platform call fail: a change either stays
// whole, Coffer included, or leaves nothing behind.
#include "transaction.hpp"

#include <gtest/gtest.h>

#include "failure.hpp"
#include "support/test_support.hpp"
#include "tarnwick/platform/testing.h"

namespace tw::test {
namespace {

using tarnwick::Failure;
using tarnwick::Secret;
using tarnwick::Transaction;

class ToolTransaction : public StoreTest {
 protected:
  // Installs an L2TP service and stores its shared secret in one
  // transaction, with `failing` made to fail once; true when it committed.
  bool installWithFailure(const char *failing) {
    auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
    auto payload = dict({{kJXVPNTypeKey, kZNEntNetL2TP}, {"PayloadDisplayName", "Office"}});
    bool committed = true;
    {
      Transaction transaction(prefs.get(), Transaction::Writes::secrets);
      auto service = Ref<ZNNetworkServiceRef>::adopt(
          JXVPNServiceCreateWithPayloadAtom(payload.get(), prefs.get()));
      transaction.setSecret(service, Secret::sharedSecret, text("office-secret").get());
      PTFailNthCall(failing, 1);
      try {
        transaction.commit();
      } catch (const Failure &failure) {
        committed = false;
        message_ = failure.what();
      }
    }
    PTReset();
    return committed;
  }

  // What a fresh session of the store holds: its services, and whether
  // each has its shared secret.
  std::vector<bool> servicesWithSecret() const {
    auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
    auto services = Ref<PVArrayRef>::adopt(JXVPNServiceCopyMatching(nullptr, prefs.get()));
    std::vector<bool> secrets;
    for (PVIndex i = 0; i < PVArrayGetCount(services.get()); ++i) {
      auto service = static_cast<ZNNetworkServiceRef>(
          const_cast<void *>(PVArrayGetValueAtIndex(services.get(), i)));
      secrets.push_back(static_cast<bool>(Ref<PVStringRef>::adopt(JXVPNServiceCopySharedSecret(service))));
    }
    return secrets;
  }

  std::string message_;
};

// The commit went through and only the apply failed: the service is in the
// store, so its secret must stay in the Coffer.
TEST_F(ToolTransaction, FailedApplyAfterACommitKeepsTheCommittedSecrets) {
  EXPECT_FALSE(installWithFailure("ZNPreferencesApplyChanges"));
  EXPECT_NE(message_.find("the change is committed, but applying it failed"), std::string::npos)
      << message_;
  EXPECT_EQ(servicesWithSecret(), std::vector<bool>{true});
}

TEST_F(ToolTransaction, FailedCommitLeavesNeitherServiceNorSecret) {
  EXPECT_FALSE(installWithFailure("ZNPreferencesCommitChanges"));
  EXPECT_NE(message_.find("cannot commit the preferences"), std::string::npos) << message_;
  EXPECT_EQ(servicesWithSecret(), std::vector<bool>{});
  auto passwords = dict({{kVltClass, kVltClassGenericPassword}});
  EXPECT_EQ(VltItemCopyMatching(passwords.get(), nullptr), kVltErrorItemNotFound);
}

TEST_F(ToolTransaction, CommitAndApplyKeepEverything) {
  EXPECT_TRUE(installWithFailure("no such operation"));
  EXPECT_EQ(servicesWithSecret(), std::vector<bool>{true});
}

}  // namespace
}  // namespace tw::test
