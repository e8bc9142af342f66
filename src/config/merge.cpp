#include "config/merge.hpp"

namespace tw::config {

namespace {

void copyEntry(PVTypeRef key, PVTypeRef value, void *target) {
  PVDictionarySetValue(static_cast<PVMutableDictionaryRef>(target), key, value);
}

}  // namespace

pv::Ref<PVMutableDictionaryRef> createMerged(PVDictionaryRef base, PVDictionaryRef entries) {
  auto merged = pv::Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutable());
  if (!merged) return merged;
  PVDictionaryApplyFunction(base, copyEntry, merged.get());
  PVDictionaryApplyFunction(entries, copyEntry, merged.get());
  return merged;
}

}  // namespace tw::config
