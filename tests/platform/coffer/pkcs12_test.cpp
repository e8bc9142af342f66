// PKCS #12 import: identities, chains in issuer order, the failures, and
// the ownership of what it hands out.
#include <gtest/gtest.h>
#include <openssl/provider.h>

#include "support/pkcs12_fixtures.hpp"
#include "support/test_support.hpp"
#include "tarnwick/platform/coffer.h"
#include "tarnwick/platform/ref.hpp"
#include "tarnwick/platform/testing.h"

namespace {

using pv::Ref;

std::string derOf(VltCertificateRef certificate) {
  auto data = Ref<PVDataRef>::adopt(VltCertificateCopyData(certificate));
  return data ? tw::test::bytesOf(data.get()) : "<none>";
}

class CofferImport : public tw::test::StoreTest {
 protected:
  VltStatus import(const std::string &container, const char *passphrase, Ref<PVArrayRef> &items) {
    auto data = tw::test::bytes(container);
    auto options = tw::test::dict({{kVltImportExportPassphrase, passphrase}});
    PVArrayRef slot = nullptr;
    VltStatus status = VltPKCS12Import(data.get(), options.get(), &slot);
    items = Ref<PVArrayRef>::adopt(slot);
    return status;
  }

  // The certificates of the trust of the item at `index`, as DER.
  std::vector<std::string> chainOf(PVArrayRef items, PVIndex index) {
    auto item = static_cast<PVDictionaryRef>(PVArrayGetValueAtIndex(items, index));
    auto trust = static_cast<VltTrustRef>(PVDictionaryGetValue(item, kVltImportItemTrust));
    std::vector<std::string> chain;
    for (PVIndex i = 0; i < VltTrustGetCertificateCount(trust); ++i) {
      chain.push_back(derOf(VltTrustGetCertificateAtIndex(trust, i)));
    }
    return chain;
  }

  std::string identityCertificate(PVArrayRef items, PVIndex index) {
    auto item = static_cast<PVDictionaryRef>(PVArrayGetValueAtIndex(items, index));
    auto identity = static_cast<VltIdentityRef>(PVDictionaryGetValue(item, kVltImportItemIdentity));
    VltCertificateRef certificate = nullptr;
    if (VltIdentityCopyCertificate(identity, &certificate) != kVltSuccess) return "<none>";
    auto owned = Ref<VltCertificateRef>::adopt(certificate);
    return derOf(certificate);
  }

  const tw::test::Pkcs12Fixtures &f = tw::test::pkcs12Fixtures();
};

// Each identity is one item: its certificate, then the chain leaf first and
// each issuer by name.
TEST_F(CofferImport, EachIdentityIsOneItemWithItsChainOrderedLeafFirstThenByIssuer) {
  using Chain = std::vector<std::string>;
  const Chain full = {f.leafCertificate, f.intermediateCertificate, f.caCertificate};
  const std::pair<const std::string &, std::vector<Chain>> containers[] = {
      {f.chainContainer, {full}},
      {f.twoIdentityContainer, {full, {f.secondLeafCertificate, f.caCertificate}}},
      {f.leafOnlyContainer, {{f.leafCertificate}}}};
  for (const auto &[container, chains] : containers) {
    Ref<PVArrayRef> items;
    ASSERT_EQ(import(container, f.passphrase.c_str(), items), kVltSuccess);
    ASSERT_EQ(PVArrayGetCount(items.get()), static_cast<PVIndex>(chains.size()));
    for (PVIndex i = 0; i < PVArrayGetCount(items.get()); ++i) {
      EXPECT_EQ(identityCertificate(items.get(), i), chains[i][0]);
      EXPECT_EQ(chainOf(items.get(), i), chains[i]);
    }
  }
}

// A certificate's issuer name is its issuer's subject name: the chain
// can be followed by name from the leaf to the CA, which names itself.
TEST_F(CofferImport, IssuerNamesLeadFromTheLeafToTheCA) {
  auto name = [](PVDataRef (*copy)(VltCertificateRef), const std::string &der) {
    auto data = tw::test::bytes(der);
    auto certificate = Ref<VltCertificateRef>::adopt(VltCertificateCreateWithData(data.get()));
    auto bytes = Ref<PVDataRef>::adopt(copy(certificate.get()));
    return bytes ? tw::test::bytesOf(bytes.get()) : "<none>";
  };
  const std::string leafIssuer = name(VltCertificateCopyIssuerName, f.leafCertificate);
  EXPECT_EQ(leafIssuer, name(VltCertificateCopySubjectName, f.intermediateCertificate));
  EXPECT_EQ(name(VltCertificateCopyIssuerName, f.intermediateCertificate),
            name(VltCertificateCopySubjectName, f.caCertificate));
  EXPECT_EQ(name(VltCertificateCopyIssuerName, f.caCertificate),
            name(VltCertificateCopySubjectName, f.caCertificate));
  EXPECT_NE(leafIssuer, name(VltCertificateCopySubjectName, f.leafCertificate));
  EXPECT_EQ(leafIssuer[0], 0x30);  // a DER sequence
  EXPECT_EQ(VltCertificateCopySubjectName(nullptr), nullptr);
  EXPECT_EQ(VltCertificateCopyIssuerName(nullptr), nullptr);
}

TEST_F(CofferImport, BadInputsFailWithTheirOwnStatusAndHandBackNothing) {
  Ref<PVArrayRef> items;
  EXPECT_EQ(import(f.chainContainer, "wrong horse", items), kVltErrorAuthFailed);
  EXPECT_FALSE(items);
  EXPECT_EQ(import("definitely not a container", f.passphrase.c_str(), items), kVltErrorDecode);
  EXPECT_EQ(
      import(f.chainContainer.substr(0, f.chainContainer.size() / 2), f.passphrase.c_str(), items),
      kVltErrorDecode);
  EXPECT_FALSE(items);

  PVArrayRef slot = nullptr;
  auto data = tw::test::bytes(f.chainContainer);
  auto empty = tw::test::dict({});
  EXPECT_EQ(VltPKCS12Import(nullptr, empty.get(), &slot), kVltErrorParam);
  EXPECT_EQ(VltPKCS12Import(data.get(), empty.get(), &slot), kVltErrorParam);  // no passphrase
  EXPECT_EQ(VltPKCS12Import(data.get(), nullptr, &slot), kVltErrorParam);
  EXPECT_EQ(slot, nullptr);
}

TEST_F(CofferImport, ContainerOfAnOlderToolImports) {
  const tw::test::LegacyContainer &legacy = tw::test::legacyContainer();
  Ref<PVArrayRef> items;
  ASSERT_EQ(import(legacy.container, f.passphrase.c_str(), items), kVltSuccess);
  ASSERT_EQ(PVArrayGetCount(items.get()), 1);
  EXPECT_EQ(identityCertificate(items.get(), 0), legacy.certificate);
  EXPECT_EQ(chainOf(items.get(), 0), (std::vector{legacy.certificate}));
  // The legacy ciphers were the import's own, not the process's.
  EXPECT_FALSE(OSSL_PROVIDER_available(nullptr, "legacy"));
}

TEST_F(CofferImport, AbsurdIterationCountIsRefusedBeforeAnyKeyIsDerived) {
  // A reader that derived keys first would take seconds, then fail on the passphrase.
  const std::pair<const char *, const std::string &> claims[] = {
      {"MAC", f.absurdMacIterations},
      {"certificate safe", f.absurdSafeIterations},
      {"shrouded key", f.absurdKeyIterations}};
  for (const auto &[where, container] : claims) {
    Ref<PVArrayRef> items;
    EXPECT_EQ(import(container, f.passphrase.c_str(), items), kVltErrorDecode) << where;
    EXPECT_FALSE(items) << where;
  }
}

TEST_F(CofferImport, ImportStoresNothing) {
  Ref<PVArrayRef> items;
  ASSERT_EQ(import(f.chainContainer, f.passphrase.c_str(), items), kVltSuccess);
  EXPECT_EQ(PTCofferWriteCount(), 0);
  auto item = static_cast<PVDictionaryRef>(PVArrayGetValueAtIndex(items.get(), 0));
  auto query = tw::test::dict({{kVltValueRef, PVDictionaryGetValue(item, kVltImportItemIdentity)}});
  EXPECT_EQ(VltItemCopyMatching(query.get(), nullptr), kVltErrorItemNotFound);
}

TEST_F(CofferImport, WhatItHandsOutIsOwnedOnceAndTrustLookupsAreBorrowed) {
  Ref<PVArrayRef> items;
  ASSERT_EQ(import(f.chainContainer, f.passphrase.c_str(), items), kVltSuccess);
  EXPECT_EQ(PVGetRetainCount(items.get()), 1);
  auto item = static_cast<PVDictionaryRef>(PVArrayGetValueAtIndex(items.get(), 0));
  EXPECT_EQ(PVGetRetainCount(item), 1);
  auto identity = static_cast<VltIdentityRef>(PVDictionaryGetValue(item, kVltImportItemIdentity));
  auto trust = static_cast<VltTrustRef>(PVDictionaryGetValue(item, kVltImportItemTrust));
  EXPECT_EQ(PVGetRetainCount(identity), 1);
  EXPECT_EQ(PVGetRetainCount(trust), 1);

  // The leaf is shared by the identity and the trust.
  VltCertificateRef leaf = VltTrustGetCertificateAtIndex(trust, 0);
  EXPECT_EQ(PVGetRetainCount(leaf), 2);
  VltCertificateRef copied = nullptr;
  ASSERT_EQ(VltIdentityCopyCertificate(identity, &copied), kVltSuccess);
  EXPECT_EQ(copied, leaf);
  EXPECT_EQ(PVGetRetainCount(leaf), 3);
  PVRelease(copied);
  EXPECT_EQ(PVGetRetainCount(VltTrustGetCertificateAtIndex(trust, 2)), 1);
  EXPECT_EQ(VltTrustGetCertificateAtIndex(trust, 3), nullptr);
  EXPECT_EQ(VltTrustGetCertificateAtIndex(trust, -1), nullptr);
}

TEST_F(CofferImport, PlannedFailuresOfTheImportAndTrustAccessors) {
  Ref<PVArrayRef> items;
  PTFailNthCall("VltPKCS12Import", 1);
  EXPECT_EQ(import(f.chainContainer, f.passphrase.c_str(), items), kVltErrorInjected);
  EXPECT_FALSE(items);
  ASSERT_EQ(import(f.chainContainer, f.passphrase.c_str(), items), kVltSuccess);
  auto item = static_cast<PVDictionaryRef>(PVArrayGetValueAtIndex(items.get(), 0));
  auto trust = static_cast<VltTrustRef>(PVDictionaryGetValue(item, kVltImportItemTrust));
  PTFailNthCall("VltTrustGetCertificateCount", 1);
  EXPECT_EQ(VltTrustGetCertificateCount(trust), 0);
  PTFailNthCall("VltTrustGetCertificateAtIndex", 1);
  EXPECT_EQ(VltTrustGetCertificateAtIndex(trust, 0), nullptr);
  EXPECT_EQ(PTCofferCallCount(), 4);
}

}  // namespace
