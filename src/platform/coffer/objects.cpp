// Certificates, identities and trusts, and their public accessors.
#include "platform/coffer/objects.hpp"

#include <openssl/crypto.h>

#include <functional>

#include "platform/coffer/openssl.hpp"
#include "platform/guard/guarded.hpp"
#include "platform/testing/fault.hpp"

namespace {

std::string nameText(const X509_NAME *name) {
  int position = X509_NAME_get_index_by_NID(name, NID_commonName, -1);
  if (position >= 0) {
    const ASN1_STRING *value = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, position));
    unsigned char *utf8 = nullptr;
    int length = ASN1_STRING_to_UTF8(&utf8, value);
    if (length >= 0) {
      std::string text(reinterpret_cast<char *>(utf8), static_cast<size_t>(length));
      OPENSSL_free(utf8);
      return text;
    }
  }
  // No common name: the whole name, one line.
  std::unique_ptr<BIO, vlt::ssl::Deleter<BIO_free>> bio(BIO_new(BIO_s_mem()));
  if (!bio || X509_NAME_print_ex(bio.get(), name, 0, XN_FLAG_RFC2253) < 0) return {};
  char *text = nullptr;
  long length = BIO_get_mem_data(bio.get(), &text);
  return std::string(text, static_cast<size_t>(length));
}

}  // namespace

bool VltCertificate::equals(const PVObject &other) const {
  return der == static_cast<const VltCertificate &>(other).der;
}

size_t VltCertificate::hash() const { return std::hash<std::string>{}(der); }

void VltCertificate::describe(std::string &out) const {
  out += "<certificate ";
  out += vlt::subjectSummary(*this);
  out += '>';
}

VltIdentity::~VltIdentity() { OPENSSL_cleanse(privateKey.data(), privateKey.size()); }

bool VltIdentity::equals(const PVObject &other) const {
  const auto &o = static_cast<const VltIdentity &>(other);
  return PVEqual(certificate.get(), o.certificate.get()) && privateKey == o.privateKey;
}

void VltIdentity::describe(std::string &out) const {
  out += "<identity ";
  out += vlt::subjectSummary(*certificate.get());
  out += '>';
}

bool VltTrust::equals(const PVObject &other) const {
  const auto &o = static_cast<const VltTrust &>(other);
  if (chain.size() != o.chain.size()) return false;
  for (size_t i = 0; i < chain.size(); ++i) {
    if (!PVEqual(chain[i].get(), o.chain[i].get())) return false;
  }
  return true;
}

namespace vlt {

VltCertificateRef createCertificate(std::string_view der) {
  auto *cursor = reinterpret_cast<const unsigned char *>(der.data());
  ssl::X509Ptr x509(d2i_X509(nullptr, &cursor, static_cast<long>(der.size())));
  // Trailing bytes mean this is not one certificate.
  if (!x509 || cursor != reinterpret_cast<const unsigned char *>(der.data() + der.size())) {
    return nullptr;
  }
  std::string issuer = ssl::encode(X509_get_issuer_name(x509.get()), i2d_X509_NAME);
  std::string subject = ssl::encode(X509_get_subject_name(x509.get()), i2d_X509_NAME);
  std::string serial = ssl::encode(X509_get0_serialNumber(x509.get()), i2d_ASN1_INTEGER);
  if (issuer.empty() || subject.empty() || serial.empty()) return nullptr;
  return new VltCertificate(std::string(der), std::move(issuer), std::move(subject),
                            std::move(serial));
}

std::string subjectSummary(const VltCertificate &certificate) {
  auto *cursor = reinterpret_cast<const unsigned char *>(certificate.der.data());
  ssl::X509Ptr x509(d2i_X509(nullptr, &cursor, static_cast<long>(certificate.der.size())));
  return x509 ? nameText(X509_get_subject_name(x509.get())) : std::string();
}

const VltCertificate *asCertificate(PVTypeRef value) {
  if (!value || pv::object(value)->kind != pv::Kind::Certificate) return nullptr;
  return static_cast<const VltCertificate *>(pv::object(value));
}

const VltIdentity *asIdentity(PVTypeRef value) {
  if (!value || pv::object(value)->kind != pv::Kind::Identity) return nullptr;
  return static_cast<const VltIdentity *>(pv::object(value));
}

}  // namespace vlt

extern "C" {

PVIndex VltTrustGetCertificateCount(VltTrustRef trust) noexcept {
  if (pt::enter("VltTrustGetCertificateCount", pt::Family::Coffer) || !trust) return 0;
  return static_cast<PVIndex>(trust->chain.size());
}

VltCertificateRef VltTrustGetCertificateAtIndex(VltTrustRef trust, PVIndex index) noexcept {
  if (pt::enter("VltTrustGetCertificateAtIndex", pt::Family::Coffer) || !trust) return nullptr;
  if (index < 0 || static_cast<size_t>(index) >= trust->chain.size()) return nullptr;
  return trust->chain[static_cast<size_t>(index)].get();
}

VltCertificateRef VltCertificateCreateWithData(PVDataRef der) noexcept {
  if (pt::enter("VltCertificateCreateWithData", pt::Family::Coffer) || !der) return nullptr;
  return platform::guarded([&] {
    std::string_view bytes(reinterpret_cast<const char *>(PVDataGetBytePtr(der)),
                           static_cast<size_t>(PVDataGetLength(der)));
    return vlt::createCertificate(bytes);
  });
}

PVDataRef VltCertificateCopyData(VltCertificateRef certificate) noexcept {
  if (pt::enter("VltCertificateCopyData", pt::Family::Coffer) || !certificate) return nullptr;
  return PVDataCreate(reinterpret_cast<const uint8_t *>(certificate->der.data()),
                      static_cast<PVIndex>(certificate->der.size()));
}

PVStringRef VltCertificateCopySubjectSummary(VltCertificateRef certificate) noexcept {
  if (pt::enter("VltCertificateCopySubjectSummary", pt::Family::Coffer) || !certificate) {
    return nullptr;
  }
  return platform::guarded(
      [&] { return PVStringCreateWithCString(vlt::subjectSummary(*certificate).c_str()); });
}

PVDataRef VltCertificateCopySubjectName(VltCertificateRef certificate) noexcept {
  if (pt::enter("VltCertificateCopySubjectName", pt::Family::Coffer) || !certificate) {
    return nullptr;
  }
  return PVDataCreate(reinterpret_cast<const uint8_t *>(certificate->subjectName.data()),
                      static_cast<PVIndex>(certificate->subjectName.size()));
}

PVDataRef VltCertificateCopyIssuerName(VltCertificateRef certificate) noexcept {
  if (pt::enter("VltCertificateCopyIssuerName", pt::Family::Coffer) || !certificate) {
    return nullptr;
  }
  return PVDataCreate(reinterpret_cast<const uint8_t *>(certificate->issuerName.data()),
                      static_cast<PVIndex>(certificate->issuerName.size()));
}

VltStatus VltIdentityCopyCertificate(VltIdentityRef identity,
                                     VltCertificateRef *certificate) noexcept {
  if (pt::enter("VltIdentityCopyCertificate", pt::Family::Coffer)) return kVltErrorInjected;
  if (!identity || !certificate) return kVltErrorParam;
  *certificate = static_cast<VltCertificateRef>(PVRetain(identity->certificate.get()));
  return kVltSuccess;
}

}  // extern "C"
