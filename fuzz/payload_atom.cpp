// A service created from any dictionary in a fresh store: a session on a
// store that nothing is ever committed to.
#include "harness.hpp"
#include "tarnwick.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const bool ready = [] {
    ZNStoreSetDirectory((fuzz::scratchDirectory() + "/store").c_str());
    return true;
  }();
  (void)ready;
  fuzz::Input in(data, size);
  auto payload = fuzz::arbitraryDictionary(in, 4);
  auto prefs = pv::Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  if (!prefs) __builtin_trap();
  auto service = pv::Ref<ZNNetworkServiceRef>::adopt(
      JXVPNServiceCreateWithPayloadAtom(payload.get(), prefs.get()));
  if (service) {
    (void)JXVPNServiceGetType(service.get());
    PVRelease(PVCopyDescription(JXVPNServiceGetConfiguration(service.get(), kZNEntNetIPSec)));
    auto all = pv::Ref<PVArrayRef>::adopt(JXVPNServiceCopyMatching(payload.get(), prefs.get()));
  }
  return 0;
}
