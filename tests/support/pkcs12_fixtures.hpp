// PKCS #12 containers made at test time with fresh keys: no key material
// is ever committed.
#pragma once

#include <string>

namespace tw::test {

struct Pkcs12Fixtures {
  std::string passphrase;  // of every container
  // DER certificates: a CA, an intermediate it issued, a leaf the
  // intermediate issued, and a second leaf the CA issued directly.
  std::string caCertificate;
  std::string intermediateCertificate;
  std::string leafCertificate;
  std::string secondLeafCertificate;
  // The leaf's identity with the intermediate and the CA (listed CA first,
  // so that a chain in container order would be wrong).
  std::string chainContainer;
  // The leaf's identity alone.
  std::string leafOnlyContainer;
  // The leaf's identity, then the second leaf's, with both issuers.
  std::string twoIdentityContainer;
};

// Made once per process.
const Pkcs12Fixtures &pkcs12Fixtures();

}  // namespace tw::test
