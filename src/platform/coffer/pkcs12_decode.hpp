// Decoding a PKCS #12 container: its private keys and certificates, before
// anything is made of them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/coffer/openssl.hpp"
#include "tarnwick/platform/coffer.h"

namespace vlt {

struct Pkcs12Contents {
  std::vector<ssl::PKeyPtr> keys;
  std::vector<ssl::X509Ptr> certificates;
};

// kVltErrorAuthFailed for a wrong passphrase; kVltErrorDecode for a
// container that cannot be read, or whose key derivation asks for more
// iterations than any real exporter uses (refused before deriving any key).
[[nodiscard]] VltStatus decodePkcs12(std::string_view bytes, const std::string &passphrase,
                       Pkcs12Contents &contents);

}  // namespace vlt
