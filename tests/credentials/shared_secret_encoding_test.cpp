#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/test_support.hpp"
#include "tarnwick.h"
#include "tarnwick/platform/ref.hpp"

namespace {

using Bytes = std::vector<uint8_t>;
using tw::test::text;
using tw::test::textOf;

// The documented masking key, first byte first.
const Bytes kKey = {0x3c, 0xa1, 0x58, 0x0e, 0x97, 0xd4, 0x62, 0xf0, 0x1b, 0x8e, 0x45};

Bytes bytesOf(PVDataRef value) {
  const uint8_t *p = PVDataGetBytePtr(value);
  return Bytes(p, p + PVDataGetLength(value));
}

Bytes masked(Bytes plain) {
  for (size_t i = 0; i < plain.size(); ++i) plain[i] ^= kKey[i % kKey.size()];
  return plain;
}

// The exported form as the layout describes it, its filler drawn from
// random() after srandom(seed).
Bytes expectedExport(const std::string &secret, unsigned seed) {
  srandom(seed);
  Bytes plain(secret.begin(), secret.end());
  plain.push_back(0);
  while (plain.size() % 12 != 0) plain.push_back(static_cast<uint8_t>(random() & 0xff));
  return masked(plain);
}

pv::Ref<PVDataRef> exportSecret(const char *secret) {
  return pv::Ref<PVDataRef>::adopt(JXVPNCreateExportedIPSecSharedSecret(text(secret).get()));
}

using Decoder = PVStringRef (*)(PVDataRef);

pv::Ref<PVStringRef> decode(Decoder decoder, const Bytes &bytes) {
  auto data =
      pv::Ref<PVDataRef>::adopt(PVDataCreate(bytes.data(), static_cast<PVIndex>(bytes.size())));
  return pv::Ref<PVStringRef>::adopt(decoder(data.get()));
}

PVStringRef emptyConstant() { return JXVPNCreateImportedIPSecSharedSecret(nullptr); }

TEST(SharedSecretExport, BytesFollowTheLayoutAtEveryBlockBoundary) {
  // Lengths by UTF-8 bytes: 0, 11, 12, 23, 24, and 12 in six characters.
  const std::pair<std::string, size_t> cases[] = {
      {"", 12},
      {"elevenbytes", 12},
      {"twelve bytes", 24},
      {"twenty-three bytes long", 24},
      {"twenty-four bytes long!!", 36},
      {"éééééé", 24},
  };
  unsigned seed = 17;
  for (const auto &[secret, length] : cases) {
    SCOPED_TRACE(secret);
    Bytes expected = expectedExport(secret, ++seed);
    ASSERT_EQ(expected.size(), length);
    long nextAfterFiller = random();
    srandom(seed);
    EXPECT_EQ(bytesOf(exportSecret(secret.c_str()).get()), expected);
    EXPECT_EQ(random(), nextAfterFiller);  // one random() call per filler byte
  }
  EXPECT_EQ(JXVPNCreateExportedIPSecSharedSecret(nullptr), nullptr);
}

TEST(SharedSecretExport, KeyCyclesIndependentlyOfTheTwelveByteBlocks) {
  // Worked by hand, not through masked(): 11 bytes need no filler, and with
  // 12 the terminator at position 12 is masked by key byte 1.
  EXPECT_EQ(bytesOf(exportSecret("abcdefghijk").get()),
            (Bytes{0x5d, 0xc3, 0x3b, 0x6a, 0xf2, 0xb2, 0x05, 0x98, 0x72, 0xe4, 0x2e, 0x3c}));
  EXPECT_EQ(bytesOf(exportSecret("abcdefghijkl").get()).at(12), 0xa1);
}

TEST(SharedSecretImport, RoundTripsAndReadsAnyDataThatUnmasksToText) {
  for (const char *secret : {"", "elevenbytes", "pässwörd ✓ 🔑 密码 beyond two blocks"}) {
    auto imported = pv::Ref<PVStringRef>::adopt(
        JXVPNCreateImportedIPSecSharedSecret(exportSecret(secret).get()));
    EXPECT_EQ(textOf(imported.get()), secret);
  }
  auto import = JXVPNCreateImportedIPSecSharedSecret;
  // Neither a multiple of 12 nor terminated: the text runs to the data's end.
  EXPECT_EQ(textOf(decode(import, masked({'a', 'b', 'c', 0, 0xff})).get()), "abc");
  EXPECT_EQ(textOf(decode(import, masked({'h', 'i'})).get()), "hi");
  EXPECT_EQ(decode(import, masked({'a', 0xc3, 0x28, 0})).get(), nullptr);
}

TEST(SharedSecretDecoders, NoInputGivesOneImmortalEmptyStringButAZeroFirstByteANewOne) {
  PVStringRef constant = emptyConstant();
  ASSERT_NE(constant, nullptr);
  for (Decoder decoder :
       {JXVPNCreateImportedIPSecSharedSecret, JXVPNCreateDecryptedIPSecSharedSecret}) {
    EXPECT_EQ(decoder(nullptr), constant);
    EXPECT_EQ(decode(decoder, {}).get(), constant);
  }
  // Callers release every result alike; the constant must survive that.
  PVIndex count = PVGetRetainCount(constant);
  for (int i = 0; i < 3; ++i) PVRelease(constant);
  EXPECT_EQ(PVGetRetainCount(constant), count);
  EXPECT_EQ(textOf(emptyConstant()), "");

  auto imported = decode(JXVPNCreateImportedIPSecSharedSecret, masked({0, 'x'}));
  auto decrypted = decode(JXVPNCreateDecryptedIPSecSharedSecret, {0x00, 0x61, 0x00, 0x62});
  for (PVStringRef fresh : {imported.get(), decrypted.get()}) {
    EXPECT_EQ(textOf(fresh), "");
    EXPECT_NE(fresh, constant);
  }
}

TEST(SharedSecretEncrypt, StoresHostOrderUnitsBehindALengthOfZero) {
  auto encrypted =
      pv::Ref<PVDataRef>::adopt(JXVPNCreateEncryptedIPSecSharedSecret(text("a€😀").get()));
  ASSERT_NE(encrypted.get(), nullptr);
  EXPECT_EQ(PVDataGetLength(encrypted.get()), 0);
  uint16_t units[4];
  std::memcpy(units, PVDataGetMutableBytePtr(const_cast<PVMutableDataRef>(encrypted.get())),
              sizeof units);
  EXPECT_EQ(std::vector<uint16_t>(units, units + 4),
            (std::vector<uint16_t>{0x0061, 0x20ac, 0xd83d, 0xde00}));
  EXPECT_EQ(JXVPNCreateDecryptedIPSecSharedSecret(encrypted.get()), emptyConstant());

  auto emptyText = text("");
  for (PVStringRef none : {static_cast<PVStringRef>(nullptr), emptyText.get()}) {
    auto empty = pv::Ref<PVDataRef>::adopt(JXVPNCreateEncryptedIPSecSharedSecret(none));
    ASSERT_NE(empty.get(), nullptr);
    EXPECT_EQ(PVDataGetLength(empty.get()), 0);
  }
}

TEST(SharedSecretDecrypt, ReadsLittleEndianUnitsUpToTheFirstZeroByte) {
  auto decrypt = JXVPNCreateDecryptedIPSecSharedSecret;
  // "ab": only "a" reaches the conversion, a lone byte that it drops.
  EXPECT_EQ(textOf(decode(decrypt, {0x61, 0x00, 0x62, 0x00}).get()), "");
  EXPECT_EQ(textOf(decode(decrypt, {0xac, 0x20, 0x13, 0x27}).get()), "€✓");
  EXPECT_EQ(textOf(decode(decrypt, {0xac, 0x20, 0x13, 0x27, 0x00, 0x41}).get()), "€✓");
  EXPECT_EQ(decode(decrypt, {0x3d, 0xd8}).get(), nullptr);  // unpaired surrogate
}

}  // namespace
