// Keeping a VPN service selected in every set after services come and go.
//
// Only a change of the current set's selection is committed, applied and
// announced; other changes wait for the caller's commit.
#include "service/internal.hpp"
#include "tarnwick/platform/constant_string.hpp"
#include "tarnwick/platform/ref.hpp"

namespace {

TW_DEFINE_LOCAL_CONSTANT_STRING(kLocalChangeNotification, "VPNChanged")
TW_DEFINE_LOCAL_CONSTANT_STRING(kSystemChangeNotification, "com.velmora.quaystone.vpn-changed")

using StringRef = pv::Ref<PVStringRef>;

bool selectionChanged(PVStringRef before, PVStringRef after) {
  if (!before || !after) return before != after;
  return !PVEqual(before, after);
}

// The result of the last set call made; false when none was made.
Boolean selectInEverySet(PVArrayRef sets, ZNNetworkServiceRef service, Boolean force) {
  Boolean result = false;
  for (PVIndex i = 0; i < PVArrayGetCount(sets); ++i) {
    auto set = static_cast<ZNNetworkSetRef>(const_cast<void *>(PVArrayGetValueAtIndex(sets, i)));
    if (!set) continue;
    auto selected = pv::Ref<ZNNetworkServiceRef>::adopt(ZNNetworkSetCopySelectedVPNService(set));
    // The last call's result, not all of them together: the current set
    // is the last one, and its selection is what callers ask about.
    if (!selected || force) result = ZNNetworkSetSetSelectedVPNService(set, service);
  }
  return result;
}

}  // namespace

extern "C" {

PVStringRef __JXVPNCopyCurrentSelectedServiceID(ZNPreferencesRef prefs) noexcept {
  auto current = pv::Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCopyCurrent(prefs));
  if (!current) return nullptr;
  auto selected =
      pv::Ref<ZNNetworkServiceRef>::adopt(ZNNetworkSetCopySelectedVPNService(current.get()));
  if (!selected) return nullptr;
  return StringRef::retain(ZNNetworkServiceGetServiceID(selected.get())).release();
}

Boolean JXVPNSetSelectedService(ZNNetworkServiceRef service, ZNPreferencesRef prefs,
                                Boolean force) noexcept {
  if (!prefs) return false;
  auto before = StringRef::adopt(__JXVPNCopyCurrentSelectedServiceID(prefs));
  auto sets = pv::Ref<PVArrayRef>::adopt(ZNNetworkSetCopyAll(prefs));
  Boolean result = sets ? selectInEverySet(sets.get(), service, force) : false;
  sets = {};
  auto after = StringRef::adopt(__JXVPNCopyCurrentSelectedServiceID(prefs));
  // A failed last call commits and announces nothing, even after an earlier
  // set changed: callers read the result as "the selection is in place".
  if (!result) return false;
  if (selectionChanged(before.get(), after.get())) {
    // Announced even when the commit fails.
    (void)JXVPNPreferencesCommitAndApply(prefs);
    NCLocalCenterPost(kLocalChangeNotification);
    NCSystemCenterPost(kSystemChangeNotification, true);
  }
  return result;
}

Boolean JXVPNUpdateDefaultsAfterAddingService(ZNNetworkServiceRef service,
                                              ZNPreferencesRef prefs) noexcept {
  return JXVPNSetSelectedService(service, prefs, true);
}

Boolean JXVPNUpdateDefaultsAfterDeletingServiceInPreferences(ZNPreferencesRef prefs) noexcept {
  auto services = pv::Ref<PVArrayRef>::adopt(JXVPNServiceCopyMatching(nullptr, prefs));
  PVIndex count = PVArrayGetCount(services.get());
  if (count == 0) return false;
  auto last = static_cast<ZNNetworkServiceRef>(
      const_cast<void *>(PVArrayGetValueAtIndex(services.get(), count - 1)));
  return JXVPNSetSelectedService(last, prefs, false);
}

}  // extern "C"
