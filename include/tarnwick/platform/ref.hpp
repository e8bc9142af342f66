// A C++ holder for one reference to a property value or platform handle.
//
// The call site says where the reference came from:
//   auto dict = pv::Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutable());
//   auto name = pv::Ref<PVStringRef>::retain(ZNNetworkServiceGetName(service));
// adopt() takes over a Create/Copy result; retain() takes a reference of its
// own to a borrowed (Get) result. The holder releases on destruction.
#pragma once

#include <utility>

#include "tarnwick/platform/values.h"

namespace pv {

template <typename T>
class Ref {
 public:
  Ref() = default;
  static Ref adopt(T value) { return Ref(value); }
  static Ref retain(T value) {
    if (value) PVRetain(value);
    return Ref(value);
  }

  Ref(const Ref &other) : value_(other.value_) {
    if (value_) PVRetain(value_);
  }
  Ref(Ref &&other) noexcept : value_(std::exchange(other.value_, nullptr)) {}
  Ref &operator=(Ref other) noexcept {
    std::swap(value_, other.value_);
    return *this;
  }
  ~Ref() {
    if (value_) PVRelease(value_);
  }

  T get() const { return value_; }
  explicit operator bool() const { return value_ != nullptr; }
  // Hands the reference to the caller (for a Create/Copy result).
  [[nodiscard]] T release() { return std::exchange(value_, nullptr); }

 private:
  explicit Ref(T value) : value_(value) {}
  T value_ = nullptr;
};

}  // namespace pv
