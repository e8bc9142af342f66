// Both shared-secret decoders on any bytes. A secret that decodes from the
// exported form exports and imports back to itself.
#include "harness.hpp"
#include "tarnwick.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  auto bytes = pv::Ref<PVDataRef>::adopt(PVDataCreate(data, static_cast<PVIndex>(size)));
  auto decrypted = pv::Ref<PVStringRef>::adopt(JXVPNCreateDecryptedIPSecSharedSecret(bytes.get()));
  auto imported = pv::Ref<PVStringRef>::adopt(JXVPNCreateImportedIPSecSharedSecret(bytes.get()));
  if (imported) {
    auto exported =
        pv::Ref<PVDataRef>::adopt(JXVPNCreateExportedIPSecSharedSecret(imported.get()));
    auto again = pv::Ref<PVStringRef>::adopt(JXVPNCreateImportedIPSecSharedSecret(exported.get()));
    if (!PVEqual(again.get(), imported.get())) __builtin_trap();
  }
  if (decrypted) {
    auto encrypted =
        pv::Ref<PVDataRef>::adopt(JXVPNCreateEncryptedIPSecSharedSecret(decrypted.get()));
    if (!encrypted) __builtin_trap();
  }
  return 0;
}
