// The payload credential extraction on any dictionary, with an empty key
// slot and with one already holding a key.
#include "harness.hpp"
#include "tarnwick.h"

namespace {

using Extract = PVTypeRef (*)(PVDictionaryRef, PVStringRef *, Boolean *);

void extract(Extract function, PVDictionaryRef payload, PVStringRef key) {
  Boolean applies = 2;
  auto value = pv::Ref<PVTypeRef>::adopt(function(payload, &key, &applies));
  if (applies > 1) __builtin_trap();  // always told
  if (value) PVRelease(PVCopyDescription(value.get()));
  if (key) (void)PVStringGetCStringPtr(key);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Input in(data, size);
  auto payload = fuzz::arbitraryDictionary(in, 4);
  for (Extract function : {JXVPNCopyPayloadUserName, JXVPNCopyPayloadPassword,
                           JXVPNCopyPayloadSharedSecret, JXVPNCopyPayloadPIN}) {
    extract(function, payload.get(), nullptr);
    extract(function, payload.get(), kJXVPNPropNetProxiesHTTPProxyPasswordKey);
  }
  return 0;
}
