// The Coffer's objects: certificates, identities and trusts. They are
// platform values like any other (retain, release, equality, %@), and
// immutable once made.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/values/object.hpp"
#include "tarnwick/platform/coffer.h"
#include "tarnwick/platform/ref.hpp"

// A certificate: its DER and the encoded parts that name it (issuer and
// serial number, its identity in the Coffer) and chain it (subject, issuer).
struct VltCertificate : pv::PVObject {
  VltCertificate(std::string der, std::string issuer, std::string subject, std::string serial)
      : PVObject(pv::Kind::Certificate, false),
        der(std::move(der)),
        issuerName(std::move(issuer)),
        subjectName(std::move(subject)),
        serialNumber(std::move(serial)) {}
  bool equals(const PVObject &other) const override;
  size_t hash() const override;
  void describe(std::string &out) const override;

  const std::string der;
  const std::string issuerName;    // DER of the issuer's name
  const std::string subjectName;   // DER of the subject's name
  const std::string serialNumber;  // DER of the serial number
};

// A certificate with its private key (PKCS #8 DER).
struct VltIdentity : pv::PVObject {
  VltIdentity(pv::Ref<VltCertificateRef> certificate, std::string privateKey)
      : PVObject(pv::Kind::Identity, false),
        certificate(std::move(certificate)),
        privateKey(std::move(privateKey)) {}
  ~VltIdentity() override;
  bool equals(const PVObject &other) const override;
  size_t hash() const override { return certificate.get()->hash(); }
  void describe(std::string &out) const override;

  const pv::Ref<VltCertificateRef> certificate;
  std::string privateKey;
};

// A certificate chain, leaf first, then each issuer.
struct VltTrust : pv::PVObject {
  explicit VltTrust(std::vector<pv::Ref<VltCertificateRef>> chain)
      : PVObject(pv::Kind::Trust, false), chain(std::move(chain)) {}
  bool equals(const PVObject &other) const override;

  const std::vector<pv::Ref<VltCertificateRef>> chain;
};

namespace vlt {

// NULL unless `der` is exactly one DER-encoded certificate. Ownership: create.
VltCertificateRef createCertificate(std::string_view der);
// The certificate's subject in one line: its common name when it has one.
std::string subjectSummary(const VltCertificate &certificate);
// NULL when the value is not of that kind.
const VltCertificate *asCertificate(PVTypeRef value);
const VltIdentity *asIdentity(PVTypeRef value);

}  // namespace vlt
