// Retain, release, equality, hashing and description for every value.
#include "platform/values/object.hpp"

#include <climits>

#include "platform/guard/guarded.hpp"

namespace pv {

void PVObject::describe(std::string &out) const {
  char buffer[64];
  snprintf(buffer, sizeof buffer, "<object %p>", static_cast<const void *>(this));
  out += buffer;
}

}  // namespace pv

extern "C" {

PVTypeRef PVRetain(PVTypeRef value) noexcept {
  if (value) pv::object(value)->retain();
  return value;
}

void PVRelease(PVTypeRef value) noexcept {
  if (value) pv::object(value)->release();
}

PVIndex PVGetRetainCount(PVTypeRef value) noexcept {
  if (!value) return 0;
  const pv::PVObject *o = pv::object(value);
  return o->immortal() ? LONG_MAX : o->refs.load(std::memory_order_relaxed);
}

PVTypeID PVGetTypeID(PVTypeRef value) noexcept {
  return value ? static_cast<PVTypeID>(pv::object(value)->kind) : 0;
}

Boolean PVEqual(PVTypeRef a, PVTypeRef b) noexcept {
  if (a == b) return true;
  if (!a || !b) return false;
  const pv::PVObject *x = pv::object(a);
  const pv::PVObject *y = pv::object(b);
  return x->kind == y->kind && x->equals(*y);
}

PVHashCode PVHash(PVTypeRef value) noexcept { return value ? pv::object(value)->hash() : 0; }

PVStringRef PVCopyDescription(PVTypeRef value) noexcept {
  if (!value) return nullptr;
  std::string text;
  return platform::guarded([&]() -> PVStringRef {
    pv::object(value)->describe(text);
    return PVString::make(text);
  });
}

PVTypeID PVStringGetTypeID(void) noexcept { return static_cast<PVTypeID>(pv::Kind::String); }
PVTypeID PVDataGetTypeID(void) noexcept { return static_cast<PVTypeID>(pv::Kind::Data); }
PVTypeID PVNumberGetTypeID(void) noexcept { return static_cast<PVTypeID>(pv::Kind::Number); }
PVTypeID PVBooleanGetTypeID(void) noexcept { return static_cast<PVTypeID>(pv::Kind::Boolean); }
PVTypeID PVArrayGetTypeID(void) noexcept { return static_cast<PVTypeID>(pv::Kind::Array); }
PVTypeID PVDictionaryGetTypeID(void) noexcept {
  return static_cast<PVTypeID>(pv::Kind::Dictionary);
}
PVTypeID PVSetGetTypeID(void) noexcept { return static_cast<PVTypeID>(pv::Kind::Set); }

}  // extern "C"
