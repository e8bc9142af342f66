// The whole installation and removal sequences as a caller runs them, each
// in a process of its own, checked afterwards from a fresh session and the
// Coffer.
#include "service/session_fixture.hpp"

namespace tw::test {
namespace {

using Lifecycle = StoreTest;

Ref<PVDictionaryRef> officePayload() {
  return dict({{kJXVPNTypeKey, kZNEntNetL2TP},
               {kJXPayloadIdentifierKey, "com.example.office"},
               {"PayloadUUID", "6f1c7a52-office"},
               {kZNPropUserDefinedName, "Office"},
               {kZNEntNetPPP, dict({{kZNPropNetPPPAuthName, "alice"},
                                    {kZNPropNetPPPAuthPassword, "ppp secret"},
                                    {kZNPropNetPPPCommRemoteAddress, "vpn.example.com"}})},
               {kZNEntNetIPSec, dict({{kZNPropNetIPSecSharedSecret, "shared secret"}})},
               {kZNNetworkProtocolTypeProxies,
                dict({{kJXVPNPropNetProxiesHTTPProxyUsernameKey, "proxy user"},
                      {kJXVPNPropNetProxiesHTTPProxyPasswordKey, "proxy pw"}})
                    .get()}});
}

// Lock, install, store every applicable credential, record the payload's
// identity, select, commit and apply, unlock.
bool installSequence(PVDictionaryRef payload) {
  auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  if (!JXVPNPreferencesLock(prefs.get())) return false;
  auto service =
      Ref<ZNNetworkServiceRef>::adopt(JXVPNServiceCreateWithPayloadAtom(payload, prefs.get()));
  if (!service) return false;
  PVStringRef key = nullptr;
  Boolean applies = false;
  auto password = Ref<PVTypeRef>::adopt(JXVPNCopyPayloadPassword(payload, &key, &applies));
  if (applies && password) {
    PVRelease(JXVPNServiceSetPassword(service.get(), static_cast<PVStringRef>(password.get())));
  }
  key = kJXVPNPropNetProxiesHTTPProxyPasswordKey;
  auto proxy = Ref<PVTypeRef>::adopt(JXVPNCopyPayloadPassword(payload, &key, &applies));
  if (applies && proxy) {
    PVRelease(JXVPNServiceSetPasswordWithType(service.get(), kJXVPNPasswordTypeProxy,
                                              static_cast<PVStringRef>(proxy.get())));
  }
  auto secret = Ref<PVTypeRef>::adopt(JXVPNCopyPayloadSharedSecret(payload, &key, &applies));
  if (applies && secret) {
    JXVPNServiceSetSharedSecret(service.get(), static_cast<PVStringRef>(secret.get()));
  }
  auto identity =
      dict({{kJXPayloadIdentifierKey, PVDictionaryGetValue(payload, kJXPayloadIdentifierKey)},
            {"PayloadUUID", PVDictionaryGetValue(payload, text("PayloadUUID").get())}});
  return JXVPNServiceMergeProtocolConfiguration(service.get(), kJXVPNProtocolTypePayload,
                                                identity.get()) &&
         JXVPNUpdateDefaultsAfterAddingService(service.get(), prefs.get()) &&
         JXVPNPreferencesCommitAndApply(prefs.get()) && JXVPNPreferencesUnlock(prefs.get());
}

// Lock, remove every match, reselect, commit and apply, unlock.
bool removeSequence(PVDictionaryRef payload) {
  auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  if (!JXVPNPreferencesLock(prefs.get())) return false;
  auto matches = Ref<PVArrayRef>::adopt(JXVPNServiceCopyMatching(payload, prefs.get()));
  if (PVArrayGetCount(matches.get()) != 1) return false;
  if (!JXVPNServiceRemove(at<ZNNetworkServiceRef>(matches.get(), 0))) return false;
  JXVPNUpdateDefaultsAfterDeletingServiceInPreferences(prefs.get());  // none left: false
  return JXVPNPreferencesCommitAndApply(prefs.get()) && JXVPNPreferencesUnlock(prefs.get());
}

std::string secretIn(const std::string &itemService) {
  return textOf(
      Ref<PVStringRef>::adopt(JXCofferCopyValue(text(itemService).get(), nullptr, nullptr, nullptr))
          .get());
}

TEST_F(Lifecycle, InstalledInOneProcessRemovedInAnotherLeavesNothing) {
  auto payload = officePayload();
  ASSERT_EQ(runInChildProcess([&] { return installSequence(payload.get()); }), 0);

  auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  auto found = Ref<PVArrayRef>::adopt(JXVPNServiceCopyMatching(payload.get(), prefs.get()));
  ASSERT_EQ(PVArrayGetCount(found.get()), 1);
  auto service = at<ZNNetworkServiceRef>(found.get(), 0);
  std::string id = textOf(ZNNetworkServiceGetServiceID(service));
  EXPECT_EQ(textOf(ZNNetworkServiceGetName(service)), "Office");
  PVDictionaryRef ppp = JXVPNServiceGetConfiguration(service, kZNEntNetPPP);
  EXPECT_EQ(textOf(PVDictionaryGetValue(ppp, kZNPropNetPPPAuthName)), "alice");
  EXPECT_FALSE(PVDictionaryContainsKey(ppp, kZNPropNetPPPAuthPassword));
  EXPECT_EQ(
      textOf(JXVPNServiceGetConfigurationProperty(service, kZNPropNetIPSecSharedSecretEncryption)),
      "Coffer");
  EXPECT_EQ(JXVPNServiceGetConfigurationProperty(service, kZNPropNetIPSecSharedSecret), nullptr);
  EXPECT_EQ(secretIn(id), "ppp secret");
  EXPECT_EQ(secretIn(id + ".SS"), "shared secret");
  EXPECT_EQ(secretIn("Office"), "proxy pw");
  auto current = Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCopyCurrent(prefs.get()));
  auto selected =
      Ref<ZNNetworkServiceRef>::adopt(ZNNetworkSetCopySelectedVPNService(current.get()));
  EXPECT_EQ(textOf(ZNNetworkServiceGetServiceID(selected.get())), id);
  EXPECT_GT(ZNPreferencesGetAppliedGeneration(prefs.get()), 0);

  ASSERT_EQ(runInChildProcess([&] { return removeSequence(payload.get()); }), 0);
  auto after = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  auto all = Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyAll(after.get()));
  EXPECT_EQ(PVArrayGetCount(all.get()), 0);
  for (const std::string &item : {id, id + ".SS", std::string("Office")}) {
    EXPECT_EQ(secretIn(item), "(null)") << item;
  }
  current = Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCopyCurrent(after.get()));
  EXPECT_EQ(ZNNetworkSetCopySelectedVPNService(current.get()), nullptr);
}

}  // namespace
}  // namespace tw::test
