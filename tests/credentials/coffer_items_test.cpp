// The Coffer item layer: the query, the generic-password functions with
// their deliberate quirks, the container import and deletion by reference.
#include "credentials/coffer_items.hpp"

#include <gtest/gtest.h>

#include <fstream>

#include "support/pkcs12_fixtures.hpp"
#include "support/test_support.hpp"
#include "tarnwick.h"
#include "tarnwick/platform/ref.hpp"
#include "tarnwick/platform/testing.h"

namespace {

using tw::test::bytes;
using tw::test::dict;
using tw::test::Ref;
using tw::test::text;
using tw::test::textOf;

class CofferItemLayer : public tw::test::StoreTest {
 protected:
  Ref<PVStringRef> service = text("svc-1.XAUTH");
  Ref<PVStringRef> account = text("alice");
  Ref<PVStringRef> description = text("IPSec XAuth Password");

  std::string copyValue(PVStringRef account) {
    return textOf(Ref<PVStringRef>::adopt(
                      JXCofferCopyValue(service.get(), account, nullptr, description.get()))
                      .get());
  }
  void setValue(const char *value) {
    auto v = text(value);
    auto result = Ref<PVTypeRef>::adopt(
        JXCofferSetValue(service.get(), account.get(), nullptr, description.get(), v.get()));
    EXPECT_FALSE(result);  // this Coffer's add hands back nothing without a return key
  }
  // The accessibility of the stored item, read back through the platform.
  PVTypeRef accessibilityOf(PVStringRef itemService) {
    auto query = dict({{kVltAttrService, itemService}, {kVltReturnAttributes, kPVBooleanTrue}});
    PVTypeRef result = nullptr;
    if (VltItemCopyMatching(query.get(), &result) != kVltSuccess) return nullptr;
    auto attributes = Ref<PVDictionaryRef>::adopt(static_cast<PVDictionaryRef>(result));
    return PVDictionaryGetValue(attributes.get(), kVltAttrAccessible);  // an immortal constant
  }
  void addRawItem(PVStringRef itemService, const std::string &data, PVStringRef accessible) {
    auto d = bytes(data);
    auto attributes = dict({{kVltClass, kVltClassGenericPassword},
                            {kVltAttrService, itemService},
                            {kVltValueData, d.get()},
                            {kVltAttrAccessible, accessible}});
    ASSERT_EQ(VltItemAdd(attributes.get(), nullptr), kVltSuccess);
  }
  Ref<PVArrayRef> importContainer(const std::string &container, const char *passphrase) {
    auto data = bytes(container);
    auto pass = text(passphrase);
    return Ref<PVArrayRef>::adopt(JXCofferSetPKCS12Container(data.get(), pass.get()));
  }
  bool isStored(PVTypeRef reference) {
    return VltItemCopyMatching(dict({{kVltValuePersistentRef, reference}}).get(), nullptr) ==
           kVltSuccess;
  }

  const tw::test::Pkcs12Fixtures &f = tw::test::pkcs12Fixtures();
};

TEST_F(CofferItemLayer, QueryHoldsClassServiceAndOnlyTheNonEmptyStrings) {
  auto empty = text("");
  auto label = text("label");
  auto query = Ref<PVMutableDictionaryRef>::adopt(
      __JXCofferCreateQuery(service.get(), empty.get(), label.get(), nullptr));
  ASSERT_TRUE(query);
  EXPECT_EQ(PVDictionaryGetCount(query.get()), 3);
  EXPECT_EQ(PVDictionaryGetValue(query.get(), kVltClass),
            static_cast<PVTypeRef>(kVltClassGenericPassword));
  EXPECT_EQ(PVDictionaryGetValue(query.get(), kVltAttrService), service.get());
  EXPECT_EQ(PVDictionaryGetValue(query.get(), kVltAttrLabel), label.get());

  EXPECT_EQ(__JXCofferCreateQuery(nullptr, account.get(), nullptr, nullptr), nullptr);
  EXPECT_EQ(__JXCofferCreateQuery(empty.get(), account.get(), nullptr, nullptr), nullptr);
}

TEST_F(CofferItemLayer, EmptyOrNullServiceMakesEveryFunctionANoOpWithoutACofferCall) {
  auto empty = text("");
  auto value = text("secret");
  for (PVStringRef noService : {static_cast<PVStringRef>(nullptr), empty.get()}) {
    EXPECT_EQ(JXCofferCopyValue(noService, account.get(), nullptr, nullptr), nullptr);
    EXPECT_EQ(JXCofferSetValue(noService, account.get(), nullptr, nullptr, value.get()), nullptr);
    JXCofferRemoveValue(noService, account.get(), nullptr, nullptr);
  }
  // An empty or null value returns at once, even with a service.
  EXPECT_EQ(JXCofferSetValue(service.get(), account.get(), nullptr, nullptr, empty.get()), nullptr);
  EXPECT_EQ(JXCofferSetValue(service.get(), account.get(), nullptr, nullptr, nullptr), nullptr);
  EXPECT_EQ(PTCofferCallCount(), 0);
}

TEST_F(CofferItemLayer, NewItemIsStoredAfterFirstUnlockAndReadBack) {
  setValue("pässword");
  EXPECT_EQ(PTCallCount("VltItemAdd"), 1);
  EXPECT_EQ(copyValue(account.get()), "pässword");
  EXPECT_EQ(accessibilityOf(service.get()),
            static_cast<PVTypeRef>(kVltAttrAccessibleAfterFirstUnlock));
  // An empty account, label or description matches whatever is stored.
  EXPECT_EQ(copyValue(text("").get()), "pässword");
  EXPECT_EQ(copyValue(text("bob").get()), "(null)");
}

TEST_F(CofferItemLayer, EqualValueMakesNoWriteAndAChangedOneKeepsAccessibility) {
  setValue("secret");
  PTReset();
  setValue("secret");
  EXPECT_EQ(PTCofferWriteCount(), 0);
  EXPECT_EQ(PTCallCount("VltItemCopyMatching"), 1);

  setValue("Secret");  // case matters: an update, which also returns null
  EXPECT_EQ(PTCallCount("VltItemUpdate"), 1);
  EXPECT_EQ(PTCallCount("VltItemAdd"), 0);
  EXPECT_EQ(copyValue(account.get()), "Secret");

  auto other = text("made-elsewhere");
  addRawItem(other.get(), "old", kVltAttrAccessibleWhenUnlocked);
  EXPECT_EQ(JXCofferSetValue(other.get(), nullptr, nullptr, nullptr, text("new").get()), nullptr);
  EXPECT_EQ(
      textOf(
          Ref<PVStringRef>::adopt(JXCofferCopyValue(other.get(), nullptr, nullptr, nullptr)).get()),
      "new");
  EXPECT_EQ(accessibilityOf(other.get()), static_cast<PVTypeRef>(kVltAttrAccessibleWhenUnlocked));
}

TEST_F(CofferItemLayer, FailedLookupsReadAsNoSecretAndFailedWritesAreIgnored) {
  setValue("secret");
  PTFailNthCall("VltItemCopyMatching", 1);
  EXPECT_EQ(copyValue(account.get()), "(null)");

  // A failed lookup makes the setter add; the stored item makes that a duplicate.
  PTReset();
  PTFailNthCall("VltItemCopyMatching", 1);
  setValue("other");
  EXPECT_EQ(PTCallCount("VltItemAdd"), 1);
  EXPECT_EQ(copyValue(account.get()), "secret");

  PTFailNthCall("VltItemUpdate", 1);
  setValue("changed");
  EXPECT_EQ(copyValue(account.get()), "secret");

  PTFailNthCall("VltItemDelete", 1);
  JXCofferRemoveValue(service.get(), account.get(), nullptr, description.get());
  EXPECT_EQ(copyValue(account.get()), "secret");
  JXCofferRemoveValue(service.get(), account.get(), nullptr, description.get());
  EXPECT_EQ(copyValue(account.get()), "(null)");

  PTFailNthCall("VltItemAdd", 1);
  setValue("never");
  EXPECT_EQ(copyValue(account.get()), "(null)");
}

TEST_F(CofferItemLayer, SecretThatIsNotTextReadsAsNoneAndIsNotReplaced) {
  addRawItem(service.get(), std::string("\xff\xfe", 2), kVltAttrAccessibleWhenUnlocked);
  EXPECT_EQ(copyValue(text("").get()), "(null)");
  // The setter takes it for a missing item, adds, and the add is a duplicate.
  EXPECT_EQ(JXCofferSetValue(service.get(), nullptr, nullptr, nullptr, text("text").get()),
            nullptr);
  EXPECT_EQ(PTCallCount("VltItemAdd"), 2);
  EXPECT_EQ(PTCallCount("VltItemUpdate"), 0);
}

TEST_F(CofferItemLayer, ImportStoresTheFirstIdentityAndItsIssuersOnce) {
  auto first = importContainer(f.chainContainer, f.passphrase.c_str());
  ASSERT_TRUE(first);
  ASSERT_EQ(PVArrayGetCount(first.get()), 3);
  EXPECT_EQ(PVGetRetainCount(first.get()), 1);
  for (PVIndex i = 0; i < 3; ++i) {
    EXPECT_EQ(PVGetRetainCount(PVArrayGetValueAtIndex(first.get(), i)), 1);
  }
  EXPECT_EQ(PTCallCount("VltItemAdd"), 3);

  // Stored already: every add is a duplicate and a lookup finds the reference.
  PTReset();
  auto second = importContainer(f.chainContainer, f.passphrase.c_str());
  EXPECT_TRUE(PVEqual(first.get(), second.get()));
  EXPECT_EQ(PTCallCount("VltItemAdd"), 3);
  EXPECT_EQ(PTCallCount("VltItemCopyMatching"), 3);
  // The same identity in another container finds the same items too.
  auto fromPair = importContainer(f.twoIdentityContainer, f.passphrase.c_str());
  EXPECT_TRUE(PVEqual(first.get(), fromPair.get()));
}

TEST_F(CofferItemLayer, ImportFindsAStoredIdentityWhateverItsAccessibility) {
  // Stored earlier by someone else, readable only when unlocked.
  auto imported = Ref<PVArrayRef>();
  {
    auto options = dict({{kVltImportExportPassphrase, f.passphrase.c_str()}});
    PVArrayRef slot = nullptr;
    ASSERT_EQ(VltPKCS12Import(bytes(f.chainContainer).get(), options.get(), &slot), kVltSuccess);
    imported = Ref<PVArrayRef>::adopt(slot);
  }
  auto item = static_cast<PVDictionaryRef>(PVArrayGetValueAtIndex(imported.get(), 0));
  auto attributes = dict({{kVltValueRef, PVDictionaryGetValue(item, kVltImportItemIdentity)},
                          {kVltAttrAccessible, kVltAttrAccessibleWhenUnlocked},
                          {kVltReturnPersistentRef, kPVBooleanTrue}});
  PVTypeRef stored = nullptr;
  ASSERT_EQ(VltItemAdd(attributes.get(), &stored), kVltSuccess);
  auto storedReference = Ref<PVTypeRef>::adopt(stored);

  // The lookup after the duplicate leaves the accessibility out, so it finds it.
  auto references = importContainer(f.chainContainer, f.passphrase.c_str());
  ASSERT_TRUE(references && PVArrayGetCount(references.get()) == 3);
  EXPECT_TRUE(PVEqual(PVArrayGetValueAtIndex(references.get(), 0), storedReference.get()));
}

TEST_F(CofferItemLayer, ImportKeepsOnlyTheFirstIdentityOfAContainer) {
  auto references = importContainer(f.twoIdentityContainer, f.passphrase.c_str());
  ASSERT_TRUE(references);
  EXPECT_EQ(PVArrayGetCount(references.get()), 3);  // the first leaf's chain, not (second, CA)
  auto secondLeaf = bytes(f.secondLeafCertificate);
  auto certificate = Ref<VltCertificateRef>::adopt(VltCertificateCreateWithData(secondLeaf.get()));
  EXPECT_EQ(VltItemCopyMatching(dict({{kVltValueRef, certificate.get()}}).get(), nullptr),
            kVltErrorItemNotFound);

  auto leafOnly = importContainer(f.leafOnlyContainer, f.passphrase.c_str());
  ASSERT_TRUE(leafOnly);
  ASSERT_EQ(PVArrayGetCount(leafOnly.get()), 1);
  EXPECT_TRUE(PVEqual(PVArrayGetValueAtIndex(leafOnly.get(), 0),
                      PVArrayGetValueAtIndex(references.get(), 0)));
}

TEST_F(CofferItemLayer, ImportFailuresGiveNullAndAFailedObjectIsLeftOut) {
  EXPECT_FALSE(importContainer(f.chainContainer, "wrong horse"));
  EXPECT_FALSE(importContainer("garbage", f.passphrase.c_str()));
  auto data = bytes(f.chainContainer);
  EXPECT_EQ(JXCofferSetPKCS12Container(data.get(), nullptr), nullptr);
  EXPECT_EQ(PTCallCount("VltPKCS12Import"), 2);  // a null passphrase never reaches it
  auto pass = text(f.passphrase.c_str());
  EXPECT_EQ(JXCofferSetPKCS12Container(nullptr, pass.get()), nullptr);
  EXPECT_EQ(PTCallCount("VltPKCS12Import"), 3);  // a null container does
  EXPECT_EQ(PTCofferWriteCount(), 0);

  PTFailNthCall("VltPKCS12Import", 1);
  EXPECT_FALSE(importContainer(f.chainContainer, f.passphrase.c_str()));

  // A trust of no certificates: an empty array, not null.
  PTFailNthCall("VltTrustGetCertificateCount", 1);
  auto none = importContainer(f.chainContainer, f.passphrase.c_str());
  ASSERT_TRUE(none);
  EXPECT_EQ(PVArrayGetCount(none.get()), 0);

  // The intermediate's add fails: the identity and the CA remain.
  PTFailNthCall("VltItemAdd", 2);
  auto partial = importContainer(f.chainContainer, f.passphrase.c_str());
  ASSERT_TRUE(partial);
  EXPECT_EQ(PVArrayGetCount(partial.get()), 2);

  // On the next import the identity is a duplicate whose lookup fails.
  PTFailNthCall("VltItemCopyMatching", 1);
  auto again = importContainer(f.chainContainer, f.passphrase.c_str());
  ASSERT_TRUE(again);
  ASSERT_EQ(PVArrayGetCount(again.get()), 2);  // the intermediate is new, the CA found
  EXPECT_TRUE(
      PVEqual(PVArrayGetValueAtIndex(again.get(), 1), PVArrayGetValueAtIndex(partial.get(), 1)));
}

TEST_F(CofferItemLayer, RemoveByReferenceDeletesOnlyThatItem) {
  auto references = importContainer(f.chainContainer, f.passphrase.c_str());
  ASSERT_TRUE(references && PVArrayGetCount(references.get()) == 3);
  auto identity = static_cast<PVDataRef>(PVArrayGetValueAtIndex(references.get(), 0));
  EXPECT_TRUE(JXCofferRemoveWithPersistentID(identity));
  EXPECT_FALSE(isStored(identity));
  EXPECT_TRUE(isStored(PVArrayGetValueAtIndex(references.get(), 1)));
  EXPECT_TRUE(isStored(PVArrayGetValueAtIndex(references.get(), 2)));

  EXPECT_FALSE(JXCofferRemoveWithPersistentID(identity));
  EXPECT_FALSE(JXCofferRemoveWithPersistentID(bytes("no such reference").get()));
  // A null reference reaches the Coffer, which refuses it; nothing is deleted.
  PTReset();
  EXPECT_FALSE(JXCofferRemoveWithPersistentID(nullptr));
  EXPECT_EQ(PTCallCount("VltItemDelete"), 1);
  EXPECT_TRUE(isStored(PVArrayGetValueAtIndex(references.get(), 1)));
}

TEST_F(CofferItemLayer, SecretsAndReferencesCrossProcesses) {
  ASSERT_EQ(
      tw::test::runInChildProcess([&] {
        Ref<PVTypeRef>::adopt(JXCofferSetValue(service.get(), account.get(), nullptr,
                                               description.get(), text("from the child").get()));
        return true;
      }),
      0);
  EXPECT_EQ(copyValue(account.get()), "from the child");

  std::string referenceFile = storeDir() + "/reference";
  ASSERT_EQ(tw::test::runInChildProcess([&] {
              auto references = importContainer(f.chainContainer, f.passphrase.c_str());
              if (!references || PVArrayGetCount(references.get()) != 3) return false;
              auto identity = static_cast<PVDataRef>(PVArrayGetValueAtIndex(references.get(), 0));
              std::ofstream(referenceFile, std::ios::binary)
                  .write(reinterpret_cast<const char *>(PVDataGetBytePtr(identity)),
                         PVDataGetLength(identity));
              return true;
            }),
            0);
  auto reference = bytes(tw::test::fileBytes(referenceFile));
  EXPECT_TRUE(isStored(reference.get()));
  EXPECT_TRUE(JXCofferRemoveWithPersistentID(reference.get()));
  EXPECT_FALSE(isStored(reference.get()));
}

}  // namespace
