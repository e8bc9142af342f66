// PKCS #12 import of any bytes, with one of a few passphrases (the first
// byte chooses): everything an import hands out is read and released.
#include "harness.hpp"
#include "tarnwick.h"

namespace {

void readCertificate(VltCertificateRef certificate) {
  PVRelease(VltCertificateCopyData(certificate));
  PVRelease(VltCertificateCopySubjectSummary(certificate));
  PVRelease(VltCertificateCopySubjectName(certificate));
  PVRelease(VltCertificateCopyIssuerName(certificate));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const char *const kPassphrases[] = {"harbour-p12", "fuzz-p12", "", "wrong"};
  fuzz::Input in(data, size);
  auto passphrase = pv::Ref<PVStringRef>::adopt(
      PVStringCreateWithCString(kPassphrases[in.byte() % std::size(kPassphrases)]));
  std::string bytes = in.rest();
  auto container = pv::Ref<PVDataRef>::adopt(PVDataCreate(
      reinterpret_cast<const uint8_t *>(bytes.data()), static_cast<PVIndex>(bytes.size())));
  const PVTypeRef keys[] = {kVltImportExportPassphrase};
  const PVTypeRef values[] = {passphrase.get()};
  auto options = pv::Ref<PVDictionaryRef>::adopt(PVDictionaryCreate(keys, values, 1));
  PVArrayRef items = nullptr;
  VltStatus status = VltPKCS12Import(container.get(), options.get(), &items);
  auto owned = pv::Ref<PVArrayRef>::adopt(items);
  if (status != kVltSuccess) {
    if (items) __builtin_trap();  // a failure hands out nothing
    return 0;
  }
  for (PVIndex i = 0; i < PVArrayGetCount(items); ++i) {
    auto item = static_cast<PVDictionaryRef>(PVArrayGetValueAtIndex(items, i));
    auto identity = static_cast<VltIdentityRef>(PVDictionaryGetValue(item, kVltImportItemIdentity));
    VltCertificateRef certificate = nullptr;
    if (VltIdentityCopyCertificate(identity, &certificate) == kVltSuccess) {
      readCertificate(certificate);
      PVRelease(certificate);
    }
    auto trust = static_cast<VltTrustRef>(PVDictionaryGetValue(item, kVltImportItemTrust));
    for (PVIndex c = 0; c < VltTrustGetCertificateCount(trust); ++c) {
      readCertificate(VltTrustGetCertificateAtIndex(trust, c));
    }
  }
  return 0;
}
