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
  // The leaf's identity, each claiming kAbsurdIterations for one key
  // derivation: of the MAC; of the encrypted certificate safe (PBES2, no
  // MAC); of the shrouded key (PKCS #12 PBE, no MAC). The claim is written
  // in after the container is made, so it costs nothing to make, and a
  // reader that did derive with it would fail on the passphrase.
  std::string absurdMacIterations;
  std::string absurdSafeIterations;
  std::string absurdKeyIterations;
};

constexpr long kAbsurdIterations = 2000000;

// Made once per process.
const Pkcs12Fixtures &pkcs12Fixtures();

// A container made by the openssl command's -legacy export, as older tools
// make them (RC2-40 certificate safe, 3DES key, SHA-1 MAC), with the
// fixtures' passphrase; and its one certificate (DER). Made on first use.
struct LegacyContainer {
  std::string container;
  std::string certificate;
};
const LegacyContainer &legacyContainer();

}  // namespace tw::test
