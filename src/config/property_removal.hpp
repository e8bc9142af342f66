// Removing keys one by one, shared by the layer and protocol removers.
#pragma once

#include "tarnwick/platform/ref.hpp"
#include "tarnwick/platform/values.h"

namespace tw::config {

// For each key of `keys` that `classify` places, removes it from a copy of
// the configuration that `read` finds for its type and writes the copy back
// with `write`, once per key, even when the key was absent. The result is
// that of the last placed key: a type with no configuration yet, or a copy
// that cannot be made, counts as success, earlier failures are forgotten,
// and unplaced keys leave the result alone. False for an empty array.
template <typename Classify, typename Read, typename Write>
[[nodiscard]] Boolean removeEachKey(PVArrayRef keys, Classify classify, Read read, Write write) {
  PVIndex count = PVArrayGetCount(keys);
  if (count < 1) return false;
  Boolean result = false;
  for (PVIndex i = 0; i < count; ++i) {
    auto key = static_cast<PVStringRef>(PVArrayGetValueAtIndex(keys, i));
    if (!key) continue;
    PVStringRef type = classify(key);
    if (!type) continue;
    PVDictionaryRef configuration = read(type);
    if (!configuration) {
      result = true;
      continue;
    }
    auto copy =
        pv::Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutableCopy(configuration));
    if (!copy) {
      result = true;
      continue;
    }
    PVDictionaryRemoveValue(copy.get(), key);
    result = write(type, copy.get());
  }
  return result;
}

}  // namespace tw::config
