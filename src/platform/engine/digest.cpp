#include "platform/engine/digest.hpp"

#include <openssl/evp.h>

#include <memory>
#include <stdexcept>

namespace engine {

std::vector<uint8_t> digest(Algorithm algorithm, std::initializer_list<std::string_view> parts) {
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                  EVP_MD_CTX_free);
  const EVP_MD *md = algorithm == Algorithm::sha1 ? EVP_sha1() : EVP_sha256();
  bool done = context && EVP_DigestInit_ex(context.get(), md, nullptr) == 1;
  for (std::string_view part : parts) {
    done = done && EVP_DigestUpdate(context.get(), part.data(), part.size()) == 1;
  }
  std::vector<uint8_t> out(EVP_MAX_MD_SIZE);
  unsigned int length = 0;
  done = done && EVP_DigestFinal_ex(context.get(), out.data(), &length) == 1;
  if (!done) throw std::runtime_error("message digest unavailable");
  out.resize(length);
  return out;
}

std::string hex(const std::vector<uint8_t> &bytes) {
  static const char digits[] = "0123456789abcdef";
  std::string out;
  out.reserve(bytes.size() * 2);
  for (uint8_t byte : bytes) {
    out += digits[byte >> 4];
    out += digits[byte & 15];
  }
  return out;
}

}  // namespace engine
