// Data, numbers and booleans.
#include <cmath>
#include <cstring>
#include <vector>

#include "platform/guard/guarded.hpp"
#include "platform/values/object.hpp"

struct PVData : pv::PVObject {
  PVData(const uint8_t *b, size_t n, bool m, size_t cap)
      : PVObject(pv::Kind::Data, false), isMutable(m), capacity(cap) {
    bytes.assign(b, b + n);
    if (cap > 0) storage.assign(cap, 0);
  }
  // A fixed-capacity value exposes `storage`, whose address never changes;
  // its length is only what SetLength/Append made it.
  const uint8_t *data() const { return capacity ? storage.data() : bytes.data(); }
  size_t length() const { return capacity ? fixedLength : bytes.size(); }
  bool equals(const PVObject &other) const override {
    const auto &o = static_cast<const PVData &>(other);
    // memcmp must not see the null pointer of an empty vector, even for 0 bytes.
    return length() == o.length() &&
           (length() == 0 || std::memcmp(data(), o.data(), length()) == 0);
  }
  size_t hash() const override {
    return std::hash<std::string_view>{}(
        std::string_view(reinterpret_cast<const char *>(data()), length()));
  }
  void describe(std::string &out) const override {
    static const char hex[] = "0123456789abcdef";
    out += '<';
    for (size_t i = 0; i < length(); ++i) {
      out += hex[data()[i] >> 4];
      out += hex[data()[i] & 15];
    }
    out += '>';
  }

  const bool isMutable;
  const size_t capacity;
  std::vector<uint8_t> bytes;
  std::vector<uint8_t> storage;
  size_t fixedLength = 0;
};

struct PVNumber : pv::PVObject {
  explicit PVNumber(int64_t v) : PVObject(pv::Kind::Number, false), isFloat(false), i(v), d(0) {}
  explicit PVNumber(double v) : PVObject(pv::Kind::Number, false), isFloat(true), i(0), d(v) {}
  double asDouble() const { return isFloat ? d : static_cast<double>(i); }
  // The integer this number is exactly, if any. Comparing an integer with a
  // double through this, not through a rounding conversion to double, keeps
  // equality transitive and the hash consistent with it.
  bool exactInteger(int64_t &out) const {
    if (!isFloat) {
      out = i;
      return true;
    }
    if (!(d >= -0x1p63 && d < 0x1p63) || d != std::trunc(d)) return false;
    out = static_cast<int64_t>(d);
    return true;
  }
  bool equals(const PVObject &other) const override {
    const auto &o = static_cast<const PVNumber &>(other);
    if (isFloat && o.isFloat) return d == o.d;
    int64_t a = 0, b = 0;
    return exactInteger(a) && o.exactInteger(b) && a == b;
  }
  size_t hash() const override {
    int64_t whole = 0;
    return exactInteger(whole) ? std::hash<int64_t>{}(whole) : std::hash<double>{}(d);
  }
  void describe(std::string &out) const override {
    char buffer[40];
    if (isFloat) {
      snprintf(buffer, sizeof buffer, "%.17g", d);
    } else {
      snprintf(buffer, sizeof buffer, "%lld", static_cast<long long>(i));
    }
    out += buffer;
  }
  const bool isFloat;
  const int64_t i;
  const double d;
};

struct PVBoolean : pv::PVObject {
  constexpr explicit PVBoolean(bool v) : PVObject(pv::Kind::Boolean, true), value(v) {}
  void describe(std::string &out) const override { out += value ? "true" : "false"; }
  const bool value;
};

namespace {

constinit PVBoolean theTrue{true};
constinit PVBoolean theFalse{false};

PVData *asData(PVDataRef d) {
  return d && d->kind == pv::Kind::Data ? const_cast<PVData *>(d) : nullptr;
}
PVData *asMutableData(PVMutableDataRef d) {
  PVData *data = asData(d);
  return data && data->isMutable ? data : nullptr;
}
const PVNumber *asNumber(PVNumberRef n) {
  return n && n->kind == pv::Kind::Number ? n : nullptr;
}

template <typename T>
Boolean store(int64_t whole, bool exact, void *out) {
  T value = static_cast<T>(whole);
  std::memcpy(out, &value, sizeof value);
  return exact && static_cast<int64_t>(value) == whole;
}

}  // namespace

extern "C" {

const PVBooleanRef kPVBooleanTrue = &theTrue;
const PVBooleanRef kPVBooleanFalse = &theFalse;

PVDataRef PVDataCreate(const uint8_t *bytes, PVIndex length) noexcept {
  if (length < 0 || (!bytes && length > 0)) return nullptr;
  return platform::guarded(
      [&] { return new PVData(bytes, static_cast<size_t>(length), false, 0); });
}

PVMutableDataRef PVDataCreateMutable(PVIndex capacity) noexcept {
  if (capacity < 0) return nullptr;
  return platform::guarded(
      [&] { return new PVData(nullptr, 0, true, static_cast<size_t>(capacity)); });
}

PVMutableDataRef PVDataCreateMutableCopy(PVDataRef data) noexcept {
  const PVData *d = asData(data);
  if (!d) return nullptr;
  return platform::guarded([&] { return new PVData(d->data(), d->length(), true, 0); });
}

PVIndex PVDataGetLength(PVDataRef data) noexcept {
  const PVData *d = asData(data);
  return d ? static_cast<PVIndex>(d->length()) : 0;
}

const uint8_t *PVDataGetBytePtr(PVDataRef data) noexcept {
  const PVData *d = asData(data);
  return d ? d->data() : nullptr;
}

uint8_t *PVDataGetMutableBytePtr(PVMutableDataRef data) noexcept {
  PVData *d = asMutableData(data);
  if (!d) return nullptr;
  return d->capacity ? d->storage.data() : d->bytes.data();
}

void PVDataSetLength(PVMutableDataRef data, PVIndex length) noexcept {
  PVData *d = asMutableData(data);
  if (!d || length < 0) return;
  platform::guarded([&] {
    if (d->capacity) {
      if (static_cast<size_t>(length) <= d->capacity) d->fixedLength = static_cast<size_t>(length);
    } else {
      d->bytes.resize(static_cast<size_t>(length), 0);
    }
  });
}

void PVDataAppendBytes(PVMutableDataRef data, const uint8_t *bytes, PVIndex length) noexcept {
  PVData *d = asMutableData(data);
  if (!d || !bytes || length <= 0) return;
  platform::guarded([&] {
    if (d->capacity) {
      if (d->fixedLength + static_cast<size_t>(length) > d->capacity) return;
      std::memcpy(d->storage.data() + d->fixedLength, bytes, static_cast<size_t>(length));
      d->fixedLength += static_cast<size_t>(length);
    } else {
      d->bytes.insert(d->bytes.end(), bytes, bytes + length);
    }
  });
}

PVNumberRef PVNumberCreateWithInt64(int64_t value) noexcept {
  return platform::guarded([&] { return new PVNumber(value); });
}

PVNumberRef PVNumberCreateWithDouble(double value) noexcept {
  return platform::guarded([&] { return new PVNumber(value); });
}

PVNumberRef PVNumberCreate(PVNumberType type, const void *value) noexcept {
  if (!value) return nullptr;
  switch (type) {
    case kPVNumberSInt8Type: return PVNumberCreateWithInt64(*static_cast<const int8_t *>(value));
    case kPVNumberSInt16Type: return PVNumberCreateWithInt64(*static_cast<const int16_t *>(value));
    case kPVNumberSInt32Type: return PVNumberCreateWithInt64(*static_cast<const int32_t *>(value));
    case kPVNumberSInt64Type: return PVNumberCreateWithInt64(*static_cast<const int64_t *>(value));
    case kPVNumberIntType: return PVNumberCreateWithInt64(*static_cast<const int *>(value));
    case kPVNumberLongType: return PVNumberCreateWithInt64(*static_cast<const long *>(value));
    case kPVNumberFloat64Type: return PVNumberCreateWithDouble(*static_cast<const double *>(value));
  }
  return nullptr;
}

Boolean PVNumberGetValue(PVNumberRef number, PVNumberType type, void *value) noexcept {
  const PVNumber *n = asNumber(number);
  if (!n || !value) return false;
  if (type == kPVNumberFloat64Type) {
    double d = n->asDouble();
    std::memcpy(value, &d, sizeof d);
    return n->isFloat || (d < 0x1p63 && static_cast<int64_t>(d) == n->i);
  }
  bool exact = true;
  int64_t whole = n->i;
  if (n->isFloat) {
    double t = std::trunc(n->d);
    bool inRange = t >= -0x1p63 && t < 0x1p63;
    exact = inRange && t == n->d;
    whole = inRange ? static_cast<int64_t>(t) : 0;
  }
  switch (type) {
    case kPVNumberSInt8Type: return store<int8_t>(whole, exact, value);
    case kPVNumberSInt16Type: return store<int16_t>(whole, exact, value);
    case kPVNumberSInt32Type: return store<int32_t>(whole, exact, value);
    case kPVNumberSInt64Type: return store<int64_t>(whole, exact, value);
    case kPVNumberIntType: return store<int>(whole, exact, value);
    case kPVNumberLongType: return store<long>(whole, exact, value);
    case kPVNumberFloat64Type: break;
  }
  return false;
}

Boolean PVNumberIsFloatType(PVNumberRef number) noexcept {
  const PVNumber *n = asNumber(number);
  return n && n->isFloat;
}

Boolean PVBooleanGetValue(PVBooleanRef boolean) noexcept {
  return boolean && boolean->kind == pv::Kind::Boolean && boolean->value;
}

}  // extern "C"
