// SHA-1 and SHA-256 against the published test vectors, against OpenSSL's
// for every length over a few blocks, and in parts.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <string>

#include "platform/engine/digest.hpp"

namespace {

using engine::Algorithm;

std::string sha(Algorithm algorithm, std::initializer_list<std::string_view> parts) {
  return engine::hex(engine::digest(algorithm, parts));
}

TEST(Digest, PublishedVectors) {
  const std::string twoBlocks = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
  const std::string million(1000000, 'a');
  EXPECT_EQ(sha(Algorithm::sha1, {""}), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
  EXPECT_EQ(sha(Algorithm::sha1, {"abc"}), "a9993e364706816aba3e25717850c26c9cd0d89d");
  EXPECT_EQ(sha(Algorithm::sha1, {twoBlocks}), "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
  EXPECT_EQ(sha(Algorithm::sha1, {million}), "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
  EXPECT_EQ(sha(Algorithm::sha256, {""}),
            "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(sha(Algorithm::sha256, {"abc"}),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(sha(Algorithm::sha256, {twoBlocks}),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  EXPECT_EQ(sha(Algorithm::sha256, {million}),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

// OpenSSL's digest of the same bytes, for comparison.
std::string reference(Algorithm algorithm, const std::string &message) {
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  EVP_Digest(message.data(), message.size(), out, &length,
             algorithm == Algorithm::sha1 ? EVP_sha1() : EVP_sha256(), nullptr);
  return engine::hex(std::vector<uint8_t>(out, out + length));
}

// Every length up to three blocks and more (the padding's edges at 55, 56
// and 64 bytes among them), whole and split at every point.
TEST(Digest, EveryLengthAndEverySplitAgreesWithOpenSSL) {
  for (Algorithm algorithm : {Algorithm::sha1, Algorithm::sha256}) {
    std::string message;
    for (size_t length = 0; length <= 200; ++length) {
      const std::string expected = reference(algorithm, message);
      ASSERT_EQ(sha(algorithm, {message}), expected) << length;
      std::string_view view(message);
      for (size_t split = 0; split <= length; split += 7) {
        ASSERT_EQ(sha(algorithm, {view.substr(0, split), view.substr(split)}), expected)
            << length << " split at " << split;
      }
      message += static_cast<char>(length * 37 % 256);
    }
  }
}

}  // namespace
