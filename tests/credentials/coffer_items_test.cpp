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

namespace tw::test {
namespace {

class CofferItemLayer : public StoreTest {
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
  Ref<PVArrayRef> importContainer(const std::string &container, const char *passphrase) {
    auto data = bytes(container);
    auto pass = text(passphrase);
    return Ref<PVArrayRef>::adopt(JXCofferSetPKCS12Container(data.get(), pass.get()));
  }
  bool isStored(PVTypeRef reference) {
    return VltItemCopyMatching(dict({{kVltValuePersistentRef, reference}}).get(), nullptr) ==
           kVltSuccess;
  }

  const Pkcs12Fixtures &f = pkcs12Fixtures();
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
}

TEST_F(CofferItemLayer, EmptyOrNullServiceMakesEveryFunctionANoOpWithoutACofferCall) {
  auto empty = text("");
  auto value = text("secret");
  for (PVStringRef noService : {static_cast<PVStringRef>(nullptr), empty.get()}) {
    EXPECT_EQ(__JXCofferCreateQuery(noService, account.get(), nullptr, nullptr), nullptr);
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
  EXPECT_EQ(cofferItem("svc-1.XAUTH"), "alice|IPSec XAuth Password|-|after-first-unlock|pässword");
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
  ASSERT_EQ(addCofferPassword("made-elsewhere", "old", nullptr, kVltAttrAccessibleWhenUnlocked),
            kVltSuccess);
  EXPECT_EQ(JXCofferSetValue(other.get(), nullptr, nullptr, nullptr, text("new").get()), nullptr);
  EXPECT_EQ(cofferItem("made-elsewhere"), "-|-|-|when-unlocked|new");
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
  ASSERT_EQ(addCofferPassword("svc-1.XAUTH", "\xff\xfe", nullptr, kVltAttrAccessibleWhenUnlocked),
            kVltSuccess);
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

  // Stored already: every add is a duplicate and a lookup finds the
  // reference, whatever accessibility the stored identity has.
  ASSERT_EQ(
      VltItemUpdate(dict({{kVltValuePersistentRef, PVArrayGetValueAtIndex(first.get(), 0)}}).get(),
                    dict({{kVltAttrAccessible, kVltAttrAccessibleWhenUnlocked}}).get()),
      kVltSuccess);
  PTReset();
  auto second = importContainer(f.chainContainer, f.passphrase.c_str());
  EXPECT_TRUE(PVEqual(first.get(), second.get()));
  EXPECT_EQ(PTCallCount("VltItemAdd"), 3);
  EXPECT_EQ(PTCallCount("VltItemCopyMatching"), 3);
  // Of two identities, only the first and its chain; the second leaf is
  // not stored.
  auto fromPair = importContainer(f.twoIdentityContainer, f.passphrase.c_str());
  EXPECT_TRUE(PVEqual(first.get(), fromPair.get()));
  auto secondLeaf = Ref<VltCertificateRef>::adopt(
      VltCertificateCreateWithData(bytes(f.secondLeafCertificate).get()));
  EXPECT_EQ(VltItemCopyMatching(dict({{kVltValueRef, secondLeaf}}).get(), nullptr),
            kVltErrorItemNotFound);
  auto leafOnly = importContainer(f.leafOnlyContainer, f.passphrase.c_str());
  ASSERT_TRUE(leafOnly);
  EXPECT_TRUE(PVEqual(leafOnly.get(), array({PVArrayGetValueAtIndex(first.get(), 0)}).get()));
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
      runInChildProcess([&] {
        Ref<PVTypeRef>::adopt(JXCofferSetValue(service.get(), account.get(), nullptr,
                                               description.get(), text("from the child").get()));
        return true;
      }),
      0);
  EXPECT_EQ(copyValue(account.get()), "from the child");

  std::string referenceFile = storeDir() + "/reference";
  ASSERT_EQ(runInChildProcess([&] {
              auto references = importContainer(f.chainContainer, f.passphrase.c_str());
              if (!references || PVArrayGetCount(references.get()) != 3) return false;
              std::ofstream(referenceFile, std::ios::binary)
                  << bytesOf(PVArrayGetValueAtIndex(references.get(), 0));
              return true;
            }),
            0);
  auto reference = bytes(fileBytes(referenceFile));
  EXPECT_TRUE(isStored(reference.get()));
  EXPECT_TRUE(JXCofferRemoveWithPersistentID(reference.get()));
  EXPECT_FALSE(isStored(reference.get()));
}

}  // namespace
}  // namespace tw::test
