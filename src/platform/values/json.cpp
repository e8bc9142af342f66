// Property values <-> JSON. Conversion walks both trees recursively, so a
// nesting limit keeps a hostile file from exhausting the stack.
#include "platform/values/json.hpp"

#include <cmath>
#include <cstdint>
#include <limits>
#include <string_view>

#include "tarnwick/platform/ref.hpp"

namespace pv::json {
namespace {

using nlohmann::json;

constexpr int kMaxDepth = 256;
constexpr std::string_view kDataKey = "$data";
constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

struct Unconvertible {
  std::string reason;
};

std::string base64Encode(const uint8_t *bytes, size_t length) {
  std::string out;
  out.reserve((length + 2) / 3 * 4);
  for (size_t i = 0; i < length; i += 3) {
    uint32_t chunk = uint32_t(bytes[i]) << 16;
    if (i + 1 < length) chunk |= uint32_t(bytes[i + 1]) << 8;
    if (i + 2 < length) chunk |= bytes[i + 2];
    out += kAlphabet[(chunk >> 18) & 63];
    out += kAlphabet[(chunk >> 12) & 63];
    out += i + 1 < length ? kAlphabet[(chunk >> 6) & 63] : '=';
    out += i + 2 < length ? kAlphabet[chunk & 63] : '=';
  }
  return out;
}

int base64Digit(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}

// Strict: padded to a multiple of four, no whitespace, no stray bits.
std::basic_string<uint8_t> base64Decode(std::string_view text) {
  const Unconvertible bad{"a \"$data\" value is not valid base64"};
  if (text.size() % 4 != 0) throw bad;
  size_t padding = 0;
  while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=') ++padding;
  std::basic_string<uint8_t> out;
  out.reserve(text.size() / 4 * 3);
  for (size_t i = 0; i < text.size(); i += 4) {
    uint32_t chunk = 0;
    for (size_t j = 0; j < 4; ++j) {
      bool isPadding = i + j >= text.size() - padding;
      int digit = isPadding ? 0 : base64Digit(text[i + j]);
      if (digit < 0) throw bad;
      chunk = chunk << 6 | uint32_t(digit);
    }
    out += uint8_t(chunk >> 16);
    if (i + 4 < text.size() || padding < 2) out += uint8_t(chunk >> 8);
    if (i + 4 < text.size() || padding < 1) out += uint8_t(chunk);
    bool lastChunk = i + 4 == text.size();
    if (lastChunk && ((padding == 1 && (chunk & 0xFF)) || (padding == 2 && (chunk & 0xFFFF)))) {
      throw bad;
    }
  }
  return out;
}

std::string text(PVStringRef s) {
  return std::string(PVStringGetCStringPtr(s), static_cast<size_t>(PVStringGetUTF8Length(s)));
}

json toJsonAt(PVTypeRef value, int depth) {
  if (depth > kMaxDepth) throw Unconvertible{"values are nested too deeply"};
  PVTypeID type = PVGetTypeID(value);
  if (type == PVStringGetTypeID()) return text(static_cast<PVStringRef>(value));
  if (type == PVBooleanGetTypeID())
    return bool(PVBooleanGetValue(static_cast<PVBooleanRef>(value)));
  if (type == PVNumberGetTypeID()) {
    auto number = static_cast<PVNumberRef>(value);
    if (PVNumberIsFloatType(number)) {
      double d = 0;
      PVNumberGetValue(number, kPVNumberFloat64Type, &d);
      if (!std::isfinite(d)) throw Unconvertible{"a number is not finite"};
      return d;
    }
    int64_t i = 0;
    PVNumberGetValue(number, kPVNumberSInt64Type, &i);
    return i;
  }
  if (type == PVDataGetTypeID()) {
    auto data = static_cast<PVDataRef>(value);
    return json{{kDataKey,
                 base64Encode(PVDataGetBytePtr(data), static_cast<size_t>(PVDataGetLength(data)))}};
  }
  if (type == PVArrayGetTypeID()) {
    auto array = static_cast<PVArrayRef>(value);
    json out = json::array();
    for (PVIndex i = 0; i < PVArrayGetCount(array); ++i) {
      out.push_back(toJsonAt(PVArrayGetValueAtIndex(array, i), depth + 1));
    }
    return out;
  }
  if (type == PVDictionaryGetTypeID()) {
    auto dictionary = static_cast<PVDictionaryRef>(value);
    PVIndex count = PVDictionaryGetCount(dictionary);
    std::vector<PVTypeRef> keys(static_cast<size_t>(count)), values(static_cast<size_t>(count));
    PVDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
    json out = json::object();
    for (size_t i = 0; i < keys.size(); ++i) {
      if (PVGetTypeID(keys[i]) != PVStringGetTypeID()) {
        throw Unconvertible{"a dictionary key is not a string"};
      }
      out[text(static_cast<PVStringRef>(keys[i]))] = toJsonAt(values[i], depth + 1);
    }
    // It would read back as data.
    if (out.size() == 1 && out.contains(kDataKey)) {
      throw Unconvertible{"a dictionary whose only key is \"$data\" cannot be stored"};
    }
    return out;
  }
  if (type == PVSetGetTypeID()) throw Unconvertible{"a set cannot be stored"};
  throw Unconvertible{"a value of this kind cannot be stored"};
}

PVTypeRef fromJsonAt(const json &value, int depth, const KeyStrings &keys);

PVTypeRef dictionaryFromJson(const json &object, int depth, const KeyStrings &keys) {
  if (object.size() == 1 && object.contains(kDataKey)) {
    const json &encoded = object.at(kDataKey);
    if (!encoded.is_string()) throw Unconvertible{"a \"$data\" value is not a string"};
    auto bytes = base64Decode(encoded.get_ref<const std::string &>());
    return PVDataCreate(bytes.data(), static_cast<PVIndex>(bytes.size()));
  }
  auto out = Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutable());
  for (const auto &[key, member] : object.items()) {
    auto k = keys ? Ref<PVStringRef>::retain(keys(key))
                  : Ref<PVStringRef>::adopt(PVStringCreateWithBytes(
                        reinterpret_cast<const uint8_t *>(key.data()),
                        static_cast<PVIndex>(key.size()), kPVStringEncodingUTF8));
    if (!k) throw Unconvertible{"a dictionary key is not valid UTF-8"};
    auto v = Ref<PVTypeRef>::adopt(fromJsonAt(member, depth + 1, keys));
    if (!out) throw std::bad_alloc();
    PVDictionarySetValue(out.get(), k.get(), v.get());
  }
  return out.release();
}

PVTypeRef fromJsonAt(const json &value, int depth, const KeyStrings &keys) {
  if (depth > kMaxDepth) throw Unconvertible{"values are nested too deeply"};
  PVTypeRef out = nullptr;
  switch (value.type()) {
    case json::value_t::null:
      throw Unconvertible{"null has no property value"};
    case json::value_t::boolean:
      return value.get<bool>() ? kPVBooleanTrue : kPVBooleanFalse;
    case json::value_t::number_integer:
      out = PVNumberCreateWithInt64(value.get<int64_t>());
      break;
    case json::value_t::number_unsigned: {
      uint64_t u = value.get<uint64_t>();
      if (u > uint64_t(std::numeric_limits<int64_t>::max())) {
        throw Unconvertible{"an integer is too large"};
      }
      out = PVNumberCreateWithInt64(int64_t(u));
      break;
    }
    case json::value_t::number_float:
      out = PVNumberCreateWithDouble(value.get<double>());
      break;
    case json::value_t::string: {
      const auto &s = value.get_ref<const std::string &>();
      out = PVStringCreateWithBytes(reinterpret_cast<const uint8_t *>(s.data()),
                                    static_cast<PVIndex>(s.size()), kPVStringEncodingUTF8);
      if (!out) throw Unconvertible{"a string is not valid UTF-8"};
      break;
    }
    case json::value_t::array: {
      auto array = Ref<PVMutableArrayRef>::adopt(PVArrayCreateMutable());
      if (!array) throw std::bad_alloc();
      for (const json &item : value) {
        auto v = Ref<PVTypeRef>::adopt(fromJsonAt(item, depth + 1, keys));
        PVArrayAppendValue(array.get(), v.get());
      }
      return array.release();
    }
    case json::value_t::object:
      out = dictionaryFromJson(value, depth, keys);
      break;
    default:
      throw Unconvertible{"a JSON value of this kind has no property value"};
  }
  if (!out) throw std::bad_alloc();
  return out;
}

// Assigning the reason may itself fail; the caller then gets an empty one.
void report(std::string &error, std::string_view reason) noexcept {
  try {
    error.assign(reason);
  } catch (...) {
  }
}

}  // namespace

bool toJson(PVTypeRef value, nlohmann::json &out, std::string &error) noexcept {
  try {
    if (!value) throw Unconvertible{"no value"};
    out = toJsonAt(value, 0);
    return true;
  } catch (const Unconvertible &failure) {
    report(error, failure.reason);
  } catch (...) {
    report(error, "out of memory");
  }
  return false;
}

PVTypeRef createFromJson(const nlohmann::json &json, std::string &error,
                         const KeyStrings &keys) noexcept {
  try {
    return fromJsonAt(json, 0, keys);
  } catch (const Unconvertible &failure) {
    report(error, failure.reason);
  } catch (...) {
    report(error, "out of memory");
  }
  return nullptr;
}

}  // namespace pv::json

extern "C" PVStringRef PVCreateJSONString(PVTypeRef value) noexcept {
  nlohmann::json json;
  std::string ignored;
  if (!pv::json::toJson(value, json, ignored)) return nullptr;
  try {
    return PVStringCreateWithCString(json.dump().c_str());
  } catch (...) {
    return nullptr;
  }
}
