// The two encoded forms in which an IPSec shared secret travels in a
// payload, and their conversions to and from a secret string.
//
//  - Encrypted form: the secret's UTF-16 code units in host order, no key.
//  - Exported form: the UTF-8 secret, a NUL, random filler up to a multiple
//    of 12 bytes, all XORed with an 11-byte key.
//
// The functions are pure: no preferences, no Coffer, no logging.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "tarnwick/platform/constant_string.hpp"
#include "tarnwick.h"

namespace {

constexpr uint8_t kVPNObfuscationKey[] = {0x3c, 0xa1, 0x58, 0x0e, 0x97, 0xd4,
                                          0x62, 0xf0, 0x1b, 0x8e, 0x45};
constexpr size_t kVPNObfuscationKeyLength = sizeof kVPNObfuscationKey;
constexpr size_t kExportBlock = 12;

// What the decoders hand back for no input: one immortal string, so that the
// caller can release every result alike.
TW_DEFINE_LOCAL_CONSTANT_STRING(kEmptySecret, "")

// The key cycles on its own 11-byte period, independent of the 12-byte
// blocks; existing exported secrets depend on exactly this.
void mask(uint8_t *bytes, size_t length) {
  for (size_t i = 0; i < length; ++i) bytes[i] ^= kVPNObfuscationKey[i % kVPNObfuscationKeyLength];
}

// Bytes before the first zero, bounded by the buffer's end.
size_t textLength(const uint8_t *bytes, size_t length) {
  const void *zero = std::memchr(bytes, 0, length);
  return zero ? static_cast<size_t>(static_cast<const uint8_t *>(zero) - bytes) : length;
}

std::unique_ptr<uint8_t[]> workingBuffer(size_t length) {
  return std::unique_ptr<uint8_t[]>(new (std::nothrow) uint8_t[length]);
}

}  // namespace

extern "C" {

PVDataRef JXVPNCreateEncryptedIPSecSharedSecret(PVStringRef secret) noexcept {
  PVIndex units = PVStringGetLength(secret);
  if (!secret || units == 0) return PVDataCreate(nullptr, 0);
  PVMutableDataRef data = PVDataCreateMutable(2 * units);
  if (!data) return nullptr;
  auto characters = std::unique_ptr<uint16_t[]>(new (std::nothrow) uint16_t[units]);
  if (!characters) {
    PVRelease(data);
    return nullptr;
  }
  PVStringGetCharacters(secret, 0, units, characters.get());
  std::memcpy(PVDataGetMutableBytePtr(data), characters.get(), 2 * static_cast<size_t>(units));
  // The length is left at 0, as callers of this encoding have always had
  // it: the code units sit in the reserved storage, reachable only through
  // the byte pointer.
  return data;
}

PVStringRef JXVPNCreateDecryptedIPSecSharedSecret(PVDataRef encrypted) noexcept {
  PVIndex length = PVDataGetLength(encrypted);
  if (!encrypted || length == 0) return kEmptySecret;
  const uint8_t *bytes = PVDataGetBytePtr(encrypted);
  // The text ends at the first zero byte, even inside a UTF-16 unit; a zero
  // first byte is read as big-endian (and so always gives "").
  PVStringEncoding encoding = bytes[0] != 0 ? kPVStringEncodingUTF16LE : kPVStringEncodingUTF16BE;
  size_t count = textLength(bytes, static_cast<size_t>(length));
  return PVStringCreateWithBytes(bytes, static_cast<PVIndex>(count), encoding);
}

PVDataRef JXVPNCreateExportedIPSecSharedSecret(PVStringRef secret) noexcept {
  if (!secret) return nullptr;
  const char *utf8 = PVStringGetCStringPtr(secret);
  if (!utf8) return nullptr;
  size_t n = std::strlen(utf8);
  size_t total = kExportBlock + kExportBlock * (n / kExportBlock);
  auto buffer = workingBuffer(total);
  if (!buffer) return nullptr;
  std::memcpy(buffer.get(), utf8, n + 1);
  for (size_t i = n + 1; i < total; ++i) buffer[i] = static_cast<uint8_t>(random());
  mask(buffer.get(), total);
  // Freed without wiping: only the masked form ever sat in it.
  return PVDataCreate(buffer.get(), static_cast<PVIndex>(total));
}

PVStringRef JXVPNCreateImportedIPSecSharedSecret(PVDataRef exported) noexcept {
  PVIndex length = PVDataGetLength(exported);
  if (!exported || length == 0) return kEmptySecret;
  size_t total = static_cast<size_t>(length);
  auto buffer = workingBuffer(total);
  if (!buffer) return nullptr;
  std::memcpy(buffer.get(), PVDataGetBytePtr(exported), total);
  mask(buffer.get(), total);
  size_t count = textLength(buffer.get(), total);
  PVStringRef secret =
      PVStringCreateWithBytes(buffer.get(), static_cast<PVIndex>(count), kPVStringEncodingUTF8);
  // The clear text must not linger in freed memory.
  explicit_bzero(buffer.get(), count);
  return secret;
}

}  // extern "C"
