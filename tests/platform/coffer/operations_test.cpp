// Item operations: uniqueness, matching, results, update, delete, and the
// testing interface's fault points and counts.
#include <gtest/gtest.h>

#include "support/pkcs12_fixtures.hpp"
#include "support/test_support.hpp"
#include "tarnwick/platform/coffer.h"
#include "tarnwick/platform/ref.hpp"
#include "tarnwick/platform/testing.h"

namespace {

using tw::test::bytes;
using tw::test::bytesOf;
using tw::test::dict;
using tw::test::Ref;
using tw::test::text;

class CofferItems : public tw::test::StoreTest {
 protected:
  // Adds a generic password; returns its persistent reference.
  Ref<PVTypeRef> addPassword(const char *service, const char *account, const std::string &secret,
                             PVStringRef accessible = nullptr) {
    PVTypeRef reference = nullptr;
    EXPECT_EQ(tw::test::addCofferPassword(service, secret, account, accessible, &reference),
              kVltSuccess);
    return Ref<PVTypeRef>::adopt(reference);
  }

  // The secret of the first item matching `query`, or "<status>" on failure.
  std::string secretOf(PVDictionaryRef query) {
    auto q = Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutableCopy(query));
    PVDictionarySetValue(q.get(), kVltReturnData, kPVBooleanTrue);
    PVTypeRef result = nullptr;
    VltStatus status = VltItemCopyMatching(q.get(), &result);
    auto owned = Ref<PVTypeRef>::adopt(result);
    return status ? "<" + std::to_string(status) + ">" : bytesOf(result);
  }

  Ref<PVDictionaryRef> attributesOf(PVDictionaryRef query) {
    auto q = Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutableCopy(query));
    PVDictionarySetValue(q.get(), kVltReturnAttributes, kPVBooleanTrue);
    PVTypeRef result = nullptr;
    EXPECT_EQ(VltItemCopyMatching(q.get(), &result), kVltSuccess);
    return Ref<PVDictionaryRef>::adopt(static_cast<PVDictionaryRef>(result));
  }

  Ref<PVTypeRef> certificate(const std::string &der) {
    auto data = bytes(der);
    return Ref<PVTypeRef>::adopt(VltCertificateCreateWithData(data.get()));
  }

  // The identity of the chain container's leaf.
  Ref<PVTypeRef> leafIdentity() {
    const auto &f = tw::test::pkcs12Fixtures();
    auto container = bytes(f.chainContainer);
    auto options = dict({{kVltImportExportPassphrase, f.passphrase.c_str()}});
    PVArrayRef items = nullptr;
    EXPECT_EQ(VltPKCS12Import(container.get(), options.get(), &items), kVltSuccess);
    auto owned = Ref<PVArrayRef>::adopt(items);
    auto first = static_cast<PVDictionaryRef>(PVArrayGetValueAtIndex(items, 0));
    return Ref<PVTypeRef>::retain(PVDictionaryGetValue(first, kVltImportItemIdentity));
  }
};

TEST_F(CofferItems, GenericPasswordsAreUniqueByServiceAndAccount) {
  addPassword("vpn", "alice", "one");
  addPassword("vpn", "bob", "two");
  addPassword("vpn", nullptr, "three");  // no account is a value of its own
  addPassword("other", "alice", "four");

  auto again = dict({{kVltClass, kVltClassGenericPassword},
                     {kVltAttrService, "vpn"},
                     {kVltAttrAccount, "alice"},
                     {kVltValueData, bytes("five").get()}});
  PVTypeRef result = nullptr;
  EXPECT_EQ(VltItemAdd(again.get(), &result), kVltErrorDuplicateItem);
  EXPECT_EQ(result, nullptr);
  EXPECT_EQ(secretOf(dict({{kVltAttrService, "vpn"}, {kVltAttrAccount, "alice"}}).get()), "one");
}

TEST_F(CofferItems, CertificatesAndIdentitiesAreUniqueByTheirCertificate) {
  const auto &f = tw::test::pkcs12Fixtures();
  auto ca = certificate(f.caCertificate);
  auto identity = leafIdentity();
  auto leaf = certificate(f.leafCertificate);
  for (PVTypeRef object : {ca.get(), identity.get(), leaf.get()}) {
    EXPECT_EQ(VltItemAdd(dict({{kVltValueRef, object}}).get(), nullptr), kVltSuccess);
  }
  // A certificate equal to a stored one, made from the same bytes again.
  auto caAgain = certificate(f.caCertificate);
  EXPECT_EQ(VltItemAdd(dict({{kVltValueRef, caAgain.get()}}).get(), nullptr),
            kVltErrorDuplicateItem);
  EXPECT_EQ(VltItemAdd(dict({{kVltValueRef, identity.get()}}).get(), nullptr),
            kVltErrorDuplicateItem);
}

TEST_F(CofferItems, AddHandsOutAReferenceOnlyWhenAskedAndDefaultsToWhenUnlocked) {
  auto attributes = dict({{kVltClass, kVltClassGenericPassword},
                          {kVltAttrService, "svc"},
                          {kVltValueData, bytes("secret").get()}});
  PVTypeRef result = nullptr;
  ASSERT_EQ(VltItemAdd(attributes.get(), &result), kVltSuccess);
  EXPECT_EQ(result, nullptr);
  auto stored = attributesOf(dict({{kVltAttrService, "svc"}}).get());
  EXPECT_EQ(PVDictionaryGetValue(stored.get(), kVltAttrAccessible),
            static_cast<PVTypeRef>(kVltAttrAccessibleWhenUnlocked));

  auto reference = addPassword("svc2", "acct", "x");
  ASSERT_TRUE(reference);
  EXPECT_EQ(PVGetTypeID(reference.get()), PVDataGetTypeID());
  EXPECT_GE(PVDataGetLength(static_cast<PVDataRef>(reference.get())), 16);
  EXPECT_EQ(PVGetRetainCount(reference.get()), 1);
}

TEST_F(CofferItems, IllFormedAttributesAreRefusedAndStoreNothing) {
  auto s = text("svc");
  auto d = bytes("secret");
  auto number = Ref<PVNumberRef>::adopt(PVNumberCreateWithInt64(7));
  auto ca = certificate(tw::test::pkcs12Fixtures().caCertificate);
  const Ref<PVDictionaryRef> refused[] = {
      dict({{kVltAttrService, s.get()}, {kVltValueData, d.get()}}),  // no class, no object
      dict({{kVltClass, kVltClassGenericPassword}, {kVltAttrService, number.get()}}),
      dict({{kVltClass, kVltClassGenericPassword}, {kVltAttrAccessible, "sometimes"}}),
      dict({{kVltClass, kVltClassGenericPassword}, {kVltValueData, s.get()}}),
      dict({{kVltClass, kVltClassGenericPassword}, {s.get(), d.get()}}),  // unknown key
      dict({{kVltClass, kVltClassGenericPassword}, {kVltReturnData, kPVBooleanTrue}}),
      dict({{kVltClass, kVltClassIdentity}, {kVltValueRef, ca.get()}}),
      dict({{kVltValueRef, ca.get()}, {kVltValueData, d.get()}}),
      dict({{kVltValueRef, s.get()}}),
  };
  for (const auto &attributes : refused) {
    EXPECT_EQ(VltItemAdd(attributes.get(), nullptr), kVltErrorParam);
  }
  EXPECT_EQ(VltItemAdd(nullptr, nullptr), kVltErrorParam);
  EXPECT_EQ(secretOf(dict({{kVltClass, kVltClassGenericPassword}}).get()),
            "<" + std::to_string(kVltErrorItemNotFound) + ">");
}

TEST_F(CofferItems, AbsentAttributesMatchAnyValueAndPresentOnesMustBeEqual) {
  addPassword("vpn", "alice", "first");
  addPassword("vpn", "bob", "second");
  EXPECT_EQ(secretOf(dict({{kVltAttrService, "vpn"}}).get()), "first");  // stored first
  EXPECT_EQ(secretOf(dict({{kVltAttrService, "vpn"}, {kVltAttrAccount, "bob"}}).get()), "second");
  EXPECT_EQ(secretOf(dict({{kVltClass, kVltClassGenericPassword}}).get()), "first");
  const std::string notFound = "<" + std::to_string(kVltErrorItemNotFound) + ">";
  EXPECT_EQ(secretOf(dict({{kVltAttrService, "vpn"}, {kVltAttrAccount, "carol"}}).get()), notFound);
  EXPECT_EQ(secretOf(dict({{kVltAttrService, "vpn"}, {kVltAttrLabel, "label"}}).get()), notFound);
  EXPECT_EQ(secretOf(dict({{kVltClass, kVltClassCertificate}}).get()), notFound);
}

TEST_F(CofferItems, LookupsHandBackWhatTheQueryAsksFor) {
  auto reference = addPassword("vpn", "alice", "secret", kVltAttrAccessibleAfterFirstUnlock);
  PVTypeRef result = nullptr;
  ASSERT_EQ(VltItemCopyMatching(dict({{kVltAttrService, "vpn"}}).get(), &result), kVltSuccess);
  auto plain = Ref<PVTypeRef>::adopt(result);
  EXPECT_TRUE(PVEqual(plain.get(), reference.get()));  // no return key: the reference

  result = nullptr;
  ASSERT_EQ(VltItemCopyMatching(dict({{kVltValuePersistentRef, reference.get()},
                                      {kVltReturnData, kPVBooleanTrue},
                                      {kVltReturnPersistentRef, kPVBooleanTrue}})
                                    .get(),
                                &result),
            kVltSuccess);
  auto both = Ref<PVDictionaryRef>::adopt(static_cast<PVDictionaryRef>(result));
  ASSERT_EQ(PVGetTypeID(both.get()), PVDictionaryGetTypeID());
  EXPECT_EQ(bytesOf(PVDictionaryGetValue(both.get(), kVltValueData)), "secret");
  EXPECT_TRUE(PVEqual(PVDictionaryGetValue(both.get(), kVltValuePersistentRef), reference.get()));
  EXPECT_TRUE(PVEqual(PVDictionaryGetValue(both.get(), kVltAttrAccount), text("alice").get()));
  EXPECT_EQ(PVDictionaryGetValue(both.get(), kVltClass),
            static_cast<PVTypeRef>(kVltClassGenericPassword));

  EXPECT_EQ(VltItemCopyMatching(dict({{kVltAttrService, "vpn"}}).get(), nullptr), kVltSuccess);
  EXPECT_EQ(VltItemCopyMatching(dict({{kVltValueData, bytes("secret").get()}}).get(), nullptr),
            kVltErrorParam);
}

TEST_F(CofferItems, AnObjectFindsTheItemStoredForIt) {
  const auto &f = tw::test::pkcs12Fixtures();
  auto identity = leafIdentity();
  PVTypeRef reference = nullptr;
  ASSERT_EQ(
      VltItemAdd(
          dict({{kVltValueRef, identity.get()}, {kVltReturnPersistentRef, kPVBooleanTrue}}).get(),
          &reference),
      kVltSuccess);
  auto stored = Ref<PVTypeRef>::adopt(reference);

  auto found = attributesOf(dict({{kVltValueRef, identity.get()}}).get());
  EXPECT_EQ(PVDictionaryGetValue(found.get(), kVltClass),
            static_cast<PVTypeRef>(kVltClassIdentity));
  // What comes back is the identity itself: certificate and key.
  EXPECT_TRUE(PVEqual(PVDictionaryGetValue(found.get(), kVltValueRef), identity.get()));

  // The bare leaf certificate names a certificate item, and there is none.
  auto leaf = certificate(f.leafCertificate);
  EXPECT_EQ(VltItemCopyMatching(dict({{kVltValueRef, leaf.get()}}).get(), nullptr),
            kVltErrorItemNotFound);
  EXPECT_EQ(
      VltItemCopyMatching(
          dict({{kVltValueRef, identity.get()}, {kVltClass, kVltClassCertificate}}).get(), nullptr),
      kVltErrorParam);
}

// Every match, in stored order, with its reference always and its secret
// only when asked for: what a check of the whole Coffer reads.
TEST_F(CofferItems, CopyAllMatchingListsEveryMatchInStoredOrder) {
  auto first = addPassword("vpn", "alice", "one");
  auto second = addPassword("vpn", "bob", "two");
  addPassword("other", "alice", "three");
  auto identity = leafIdentity();
  ASSERT_EQ(VltItemAdd(dict({{kVltValueRef, identity.get()}}).get(), nullptr), kVltSuccess);

  auto all = [](PVDictionaryRef query, VltStatus expected = kVltSuccess) {
    PVArrayRef items = nullptr;
    EXPECT_EQ(VltItemCopyAllMatching(query, &items), expected);
    return Ref<PVArrayRef>::adopt(items);
  };
  auto matches = all(dict({{kVltAttrService, "vpn"}}).get());
  ASSERT_EQ(PVArrayGetCount(matches.get()), 2);
  const Ref<PVTypeRef> *references[] = {&first, &second};
  const char *accounts[] = {"alice", "bob"};
  for (PVIndex i = 0; i < 2; ++i) {
    auto item = static_cast<PVDictionaryRef>(PVArrayGetValueAtIndex(matches.get(), i));
    EXPECT_TRUE(PVEqual(PVDictionaryGetValue(item, kVltValuePersistentRef), references[i]->get()));
    EXPECT_TRUE(PVEqual(PVDictionaryGetValue(item, kVltAttrAccount), text(accounts[i]).get()));
    EXPECT_EQ(PVDictionaryGetValue(item, kVltValueData), nullptr);  // not asked for
  }
  auto withData = all(dict({{kVltAttrService, "vpn"}, {kVltReturnData, kPVBooleanTrue}}).get());
  auto item = static_cast<PVDictionaryRef>(PVArrayGetValueAtIndex(withData.get(), 1));
  EXPECT_EQ(bytesOf(PVDictionaryGetValue(item, kVltValueData)), "two");

  EXPECT_EQ(PVArrayGetCount(all(dict({}).get()).get()), 4);
  auto identities = all(dict({{kVltClass, kVltClassIdentity}}).get());
  ASSERT_EQ(PVArrayGetCount(identities.get()), 1);
  item = static_cast<PVDictionaryRef>(PVArrayGetValueAtIndex(identities.get(), 0));
  EXPECT_TRUE(PVEqual(PVDictionaryGetValue(item, kVltValueRef), identity.get()));

  EXPECT_EQ(PVArrayGetCount(all(dict({{kVltAttrService, "none"}}).get()).get()), 0);
  EXPECT_EQ(all(dict({{kVltValueData, bytes("one").get()}}).get(), kVltErrorParam).get(), nullptr);
  EXPECT_EQ(VltItemCopyAllMatching(dict({}).get(), nullptr), kVltErrorParam);
}

TEST_F(CofferItems, UpdateChangesEveryMatchAndKeepsAccessibilityUnlessListed) {
  addPassword("vpn", "alice", "a", kVltAttrAccessibleWhenUnlocked);
  addPassword("vpn", "bob", "b", kVltAttrAccessibleAfterFirstUnlock);
  addPassword("other", "carol", "c");
  ASSERT_EQ(VltItemUpdate(dict({{kVltAttrService, "vpn"}}).get(),
                          dict({{kVltValueData, bytes("new").get()}}).get()),
            kVltSuccess);
  auto aliceQuery = dict({{kVltAttrService, "vpn"}, {kVltAttrAccount, "alice"}});
  auto bobQuery = dict({{kVltAttrService, "vpn"}, {kVltAttrAccount, "bob"}});
  EXPECT_EQ(secretOf(aliceQuery.get()), "new");
  EXPECT_EQ(secretOf(bobQuery.get()), "new");
  EXPECT_EQ(secretOf(dict({{kVltAttrAccount, "carol"}}).get()), "c");
  EXPECT_EQ(PVDictionaryGetValue(attributesOf(aliceQuery.get()).get(), kVltAttrAccessible),
            static_cast<PVTypeRef>(kVltAttrAccessibleWhenUnlocked));
  EXPECT_EQ(PVDictionaryGetValue(attributesOf(bobQuery.get()).get(), kVltAttrAccessible),
            static_cast<PVTypeRef>(kVltAttrAccessibleAfterFirstUnlock));

  ASSERT_EQ(VltItemUpdate(aliceQuery.get(),
                          dict({{kVltAttrAccessible, kVltAttrAccessibleAfterFirstUnlock}}).get()),
            kVltSuccess);
  EXPECT_EQ(PVDictionaryGetValue(attributesOf(aliceQuery.get()).get(), kVltAttrAccessible),
            static_cast<PVTypeRef>(kVltAttrAccessibleAfterFirstUnlock));
}

TEST_F(CofferItems, UpdateThatWouldMakeADuplicateChangesNothing) {
  addPassword("vpn", "alice", "a");
  addPassword("vpn", "bob", "b");
  auto d = bytes("new");
  // Both would become (vpn, alice): the whole update is refused.
  EXPECT_EQ(VltItemUpdate(dict({{kVltAttrService, "vpn"}}).get(),
                          dict({{kVltAttrAccount, "alice"}, {kVltValueData, d.get()}}).get()),
            kVltErrorDuplicateItem);
  EXPECT_EQ(secretOf(dict({{kVltAttrAccount, "alice"}}).get()), "a");
  EXPECT_EQ(secretOf(dict({{kVltAttrAccount, "bob"}}).get()), "b");

  EXPECT_EQ(VltItemUpdate(dict({{kVltAttrAccount, "nobody"}}).get(),
                          dict({{kVltValueData, d.get()}}).get()),
            kVltErrorItemNotFound);
  EXPECT_EQ(VltItemUpdate(dict({}).get(), dict({{kVltValueData, d.get()}}).get()), kVltErrorParam);
  EXPECT_EQ(VltItemUpdate(dict({{kVltAttrAccount, "bob"}}).get(),
                          dict({{kVltClass, kVltClassCertificate}}).get()),
            kVltErrorParam);
}

TEST_F(CofferItems, DeleteRemovesEveryMatchOrExactlyTheReferencedItem) {
  auto first = addPassword("vpn", "alice", "a");
  auto second = addPassword("vpn", "bob", "b");
  addPassword("other", "carol", "c");
  addPassword("other", "dave", "d");

  EXPECT_EQ(VltItemDelete(dict({{kVltValuePersistentRef, second.get()}}).get()), kVltSuccess);
  EXPECT_EQ(VltItemDelete(dict({{kVltValuePersistentRef, second.get()}}).get()),
            kVltErrorItemNotFound);
  EXPECT_EQ(secretOf(dict({{kVltAttrService, "vpn"}}).get()), "a");

  EXPECT_EQ(VltItemDelete(dict({{kVltAttrService, "other"}}).get()), kVltSuccess);
  EXPECT_EQ(VltItemCopyMatching(dict({{kVltAttrService, "other"}}).get(), nullptr),
            kVltErrorItemNotFound);

  // An empty query would name every item; it names none.
  EXPECT_EQ(VltItemDelete(dict({}).get()), kVltErrorParam);
  EXPECT_EQ(VltItemDelete(nullptr), kVltErrorParam);
  EXPECT_EQ(secretOf(dict({{kVltValuePersistentRef, first.get()}}).get()), "a");
}

TEST_F(CofferItems, EachOperationFailsOnItsPlannedCallAndIsCounted) {
  auto reference = addPassword("vpn", "alice", "a");
  auto d = bytes("new");
  auto query = dict({{kVltAttrService, "vpn"}});
  auto added = dict({{kVltClass, kVltClassGenericPassword}, {kVltAttrService, "x"}});
  PTReset();

  PTFailNthCall("VltItemAdd", 1);
  EXPECT_EQ(VltItemAdd(added.get(), nullptr), kVltErrorInjected);
  PTFailNthCall("VltItemUpdate", 1);
  EXPECT_EQ(VltItemUpdate(query.get(), dict({{kVltValueData, d.get()}}).get()), kVltErrorInjected);
  PTFailNthCall("VltItemDelete", 1);
  EXPECT_EQ(VltItemDelete(query.get()), kVltErrorInjected);
  PTFailNthCall("VltItemCopyMatching", 2);
  EXPECT_EQ(VltItemCopyMatching(query.get(), nullptr), kVltSuccess);
  PVTypeRef result = nullptr;
  EXPECT_EQ(VltItemCopyMatching(query.get(), &result), kVltErrorInjected);
  EXPECT_EQ(result, nullptr);
  PTFailNthCall("VltItemCopyAllMatching", 1);
  PVArrayRef items = nullptr;
  EXPECT_EQ(VltItemCopyAllMatching(query.get(), &items), kVltErrorInjected);
  EXPECT_EQ(items, nullptr);
  EXPECT_EQ(PTCofferWriteCount(), 3);
  EXPECT_EQ(PTCofferCallCount(), 6);
  EXPECT_EQ(PTCallCount("VltItemCopyMatching"), 2);

  // Nothing the failed calls were asked to do happened.
  EXPECT_EQ(VltItemCopyMatching(added.get(), nullptr), kVltErrorItemNotFound);
  EXPECT_EQ(secretOf(dict({{kVltValuePersistentRef, reference.get()}}).get()), "a");
}

}  // namespace
