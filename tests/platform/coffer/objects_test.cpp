// Certificates as values: what is accepted, equality and description.
#include <gtest/gtest.h>

#include "support/pkcs12_fixtures.hpp"
#include "support/test_support.hpp"
#include "tarnwick/platform/coffer.h"
#include "tarnwick/platform/ref.hpp"

namespace {

using tw::test::Ref;
using tw::test::textOf;

Ref<VltCertificateRef> certificate(const std::string &der) {
  auto data = tw::test::bytes(der);
  return Ref<VltCertificateRef>::adopt(VltCertificateCreateWithData(data.get()));
}

TEST(CofferCertificate, OnlyExactlyOneDerCertificateIsAccepted) {
  const auto &f = tw::test::pkcs12Fixtures();
  EXPECT_TRUE(certificate(f.leafCertificate));
  EXPECT_FALSE(certificate(""));
  EXPECT_FALSE(certificate("not a certificate"));
  EXPECT_FALSE(certificate(f.leafCertificate + "x"));
  EXPECT_FALSE(certificate(f.leafCertificate.substr(1)));
  EXPECT_EQ(VltCertificateCreateWithData(nullptr), nullptr);
}

TEST(CofferCertificate, EqualityIsByEncodingAndTheDataRoundTrips) {
  const auto &f = tw::test::pkcs12Fixtures();
  auto leaf = certificate(f.leafCertificate), again = certificate(f.leafCertificate),
       ca = certificate(f.caCertificate);
  EXPECT_NE(leaf.get(), again.get());
  EXPECT_TRUE(PVEqual(leaf.get(), again.get()));
  EXPECT_EQ(PVHash(leaf.get()), PVHash(again.get()));
  EXPECT_FALSE(PVEqual(leaf.get(), ca.get()));
  auto data = Ref<PVDataRef>::adopt(VltCertificateCopyData(leaf.get()));
  auto original = tw::test::bytes(f.leafCertificate);
  EXPECT_TRUE(PVEqual(data.get(), original.get()));
}

TEST(CofferCertificate, SummaryIsTheSubjectsCommonName) {
  auto leaf = certificate(tw::test::pkcs12Fixtures().leafCertificate);
  auto summary = Ref<PVStringRef>::adopt(VltCertificateCopySubjectSummary(leaf.get()));
  EXPECT_EQ(textOf(summary.get()), "vpn-client.example");
  auto description = Ref<PVStringRef>::adopt(PVCopyDescription(leaf.get()));
  EXPECT_EQ(textOf(description.get()), "<certificate vpn-client.example>");
}

}  // namespace
