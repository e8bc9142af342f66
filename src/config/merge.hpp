// Laying one configuration dictionary over another, shared by the whole
// configuration and protocol configuration merges.
#pragma once

#include "tarnwick/platform/ref.hpp"
#include "tarnwick/platform/values.h"

namespace tw::config {

// A new mutable dictionary with every entry of `base` (which may be NULL),
// then every entry of `entries` on top: for a key in both, `entries` wins.
// An empty holder when the dictionary cannot be made.
[[nodiscard]] pv::Ref<PVMutableDictionaryRef> createMerged(PVDictionaryRef base,
                                                           PVDictionaryRef entries);

}  // namespace tw::config
