// Property values <-> JSON. Conversion walks both trees recursively, so a
// nesting limit keeps a hostile file from exhausting the stack.
#include "platform/values/json.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <set>
#include <string_view>
#include <vector>

#include "platform/encoding/base64.hpp"
#include "platform/guard/guarded.hpp"
#include "tarnwick/platform/json.h"
#include "tarnwick/platform/ref.hpp"

namespace pv::json {
namespace {

using nlohmann::json;

constexpr int kMaxDepth = 256;
constexpr std::string_view kDataKey = "$data";
constexpr std::string_view kFileKey = "$file";

struct Unconvertible {
  explicit Unconvertible(std::string why) : reason(std::move(why)) {}
  std::string reason;
  std::string path;  // filled in on the way out, innermost part first
};

// The path of a member `key` (or an element "[i]") holding `inner`.
std::string joinPath(const std::string &part, const std::string &inner) {
  if (inner.empty()) return part;
  return inner.front() == '[' ? part + inner : part + "." + inner;
}

std::string_view bytesOf(PVDataRef data) {
  return {reinterpret_cast<const char *>(PVDataGetBytePtr(data)),
          static_cast<size_t>(PVDataGetLength(data))};
}

PVDataRef dataOf(std::string_view bytes) {
  return PVDataCreate(reinterpret_cast<const uint8_t *>(bytes.data()),
                      static_cast<PVIndex>(bytes.size()));
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
    return json{{kDataKey, base64::encode(bytesOf(data))}};
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

PVTypeRef fromJsonAt(const json &value, int depth, const Hooks &hooks);

// The data of a {"$data": …} or {"$file": …} object; null for any other.
PVTypeRef specialData(const json &object, const Hooks &hooks) {
  if (object.size() != 1) return nullptr;
  bool isData = object.contains(kDataKey);
  if (!isData && !(hooks.readFile && object.contains(kFileKey))) return nullptr;
  const json &text = object.begin().value();
  if (!text.is_string()) {
    throw Unconvertible{isData ? "\"$data\" is not a string" : "\"$file\" is not a string"};
  }
  const auto &string = text.get_ref<const std::string &>();
  if (isData) {
    auto bytes = base64::decode(string);
    if (!bytes) throw Unconvertible{"\"$data\" is not valid base64"};
    return dataOf(*bytes);
  }
  std::string reason;
  PVDataRef data = hooks.readFile(string, reason);
  if (!data) throw Unconvertible{reason};
  return data;
}

PVTypeRef dictionaryFromJson(const json &object, int depth, const Hooks &hooks) {
  if (PVTypeRef data = specialData(object, hooks)) return data;
  auto out = Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutable());
  for (const auto &[key, member] : object.items()) {
    try {
      auto k = hooks.keys ? Ref<PVStringRef>::retain(hooks.keys(key))
                          : Ref<PVStringRef>::adopt(PVStringCreateWithBytes(
                                reinterpret_cast<const uint8_t *>(key.data()),
                                static_cast<PVIndex>(key.size()), kPVStringEncodingUTF8));
      if (!k) throw Unconvertible{"a key that is not UTF-8, or holds a NUL"};
      auto v = Ref<PVTypeRef>::adopt(fromJsonAt(member, depth + 1, hooks));
      if (!out) throw std::bad_alloc();
      PVDictionarySetValue(out.get(), k.get(), v.get());
    } catch (Unconvertible &failure) {
      failure.path = joinPath(key, failure.path);
      throw;
    }
  }
  return out.release();
}

PVTypeRef fromJsonAt(const json &value, int depth, const Hooks &hooks) {
  if (depth > kMaxDepth) throw Unconvertible{"values are nested too deeply"};
  PVTypeRef out = nullptr;
  switch (value.type()) {
    case json::value_t::null:
      throw Unconvertible{"null is not a property value"};
    case json::value_t::boolean:
      return value.get<bool>() ? kPVBooleanTrue : kPVBooleanFalse;
    case json::value_t::number_integer:
      out = PVNumberCreateWithInt64(value.get<int64_t>());
      break;
    case json::value_t::number_unsigned: {
      uint64_t u = value.get<uint64_t>();
      if (u > uint64_t(std::numeric_limits<int64_t>::max())) {
        throw Unconvertible{"an integer beyond the 64-bit range"};
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
      if (!out) throw Unconvertible{"text that is not UTF-8, or holds a NUL"};
      break;
    }
    case json::value_t::array: {
      auto array = Ref<PVMutableArrayRef>::adopt(PVArrayCreateMutable());
      if (!array) throw std::bad_alloc();
      for (size_t i = 0; i < value.size(); ++i) {
        try {
          auto v = Ref<PVTypeRef>::adopt(fromJsonAt(value[i], depth + 1, hooks));
          PVArrayAppendValue(array.get(), v.get());
        } catch (Unconvertible &failure) {
          failure.path = joinPath("[" + std::to_string(i) + "]", failure.path);
          throw;
        }
      }
      return array.release();
    }
    case json::value_t::object:
      out = dictionaryFromJson(value, depth, hooks);
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

PVTypeRef createFromJson(const nlohmann::json &json, Failure &failure,
                         const Hooks &hooks) noexcept {
  try {
    return fromJsonAt(json, 0, hooks);
  } catch (const Unconvertible &unconvertible) {
    report(failure.reason, unconvertible.reason);
    report(failure.path, unconvertible.path);
  } catch (...) {
    report(failure.reason, "out of memory");
  }
  return nullptr;
}

}  // namespace pv::json

namespace {

// 1-based line and column of a byte offset.
std::pair<size_t, size_t> lineAndColumn(std::string_view text, size_t offset) {
  offset = std::min(offset, text.size());
  size_t line = 1;
  size_t lineStart = 0;
  for (size_t i = 0; i < offset; ++i) {
    if (text[i] == '\n') {
      ++line;
      lineStart = i + 1;
    }
  }
  return {line, offset - lineStart + 1};
}

PVStringRef newString(const std::string &text) { return PVStringCreateWithCString(text.c_str()); }

// The parser's message without its position (given apart) and without the
// text it last read, which may be a password next to the error.
std::string parseErrorReason(std::string what) {
  size_t at = what.find("column ");
  at = at == std::string::npos ? std::string::npos : what.find(": ", at);
  if (at != std::string::npos) what = what.substr(at + 2);
  size_t quoted = what.find("; last read: '");
  if (quoted != std::string::npos) {
    size_t expected = what.find("; expected ", quoted);
    what.erase(quoted, expected == std::string::npos ? std::string::npos : expected - quoted);
  }
  return what;
}

// Notes the first key that appears twice in one object, with its path: the
// parser itself keeps the last one silently.
struct DuplicateKeys {
  struct Object {
    std::set<std::string> keys;
    std::string current;
  };
  std::vector<Object> open;
  std::optional<std::string> found;

  nlohmann::json::parser_callback_t callback() {
    return [this](int, nlohmann::json::parse_event_t event, nlohmann::json &parsed) {
      using Event = nlohmann::json::parse_event_t;
      if (event == Event::object_start) open.emplace_back();
      if (event == Event::object_end && !open.empty()) open.pop_back();
      if (event == Event::key && !open.empty() && !found) {
        open.back().current = parsed.get<std::string>();
        if (!open.back().keys.insert(open.back().current).second) found = path();
      }
      return true;
    };
  }
  std::string path() const {
    std::string joined;
    for (const Object &object : open) joined += (joined.empty() ? "" : ".") + object.current;
    return joined;
  }
};

void reportFailure(PVJSONError *error, size_t line, size_t column, const std::string *path,
                   const std::string &reason) {
  if (!error) return;
  error->line = static_cast<PVIndex>(line);
  error->column = static_cast<PVIndex>(column);
  error->path = path ? newString(*path) : nullptr;
  error->reason = newString(reason);
}

}  // namespace

extern "C" {

PVTypeRef PVCreateWithJSONText(const char *text, PVIndex length, PVJSONFileReader readFile,
                               void *context, PVJSONError *error) noexcept {
  if (error) *error = PVJSONError{0, 0, nullptr, nullptr};
  if (!text || length < 0) return nullptr;
  return platform::guarded([&]() -> PVTypeRef {
    std::string_view source(text, static_cast<size_t>(length));
    nlohmann::json document;
    DuplicateKeys duplicates;
    try {
      document = nlohmann::json::parse(source, duplicates.callback());
    } catch (const nlohmann::json::parse_error &failure) {
      // The parser counts the bytes it read; the last one read is the culprit.
      auto [line, column] = lineAndColumn(source, failure.byte == 0 ? 0 : failure.byte - 1);
      reportFailure(error, line, column, nullptr, parseErrorReason(failure.what()));
      return nullptr;
    } catch (const nlohmann::json::out_of_range &) {
      // Its message quotes the number; where it stands, it does not say.
      std::string top;
      reportFailure(error, 0, 0, &top, "a number beyond the range of a double");
      return nullptr;
    }
    if (duplicates.found) {
      reportFailure(error, 0, 0, &*duplicates.found, "the key appears more than once");
      return nullptr;
    }
    pv::json::Hooks hooks;
    if (readFile) {
      hooks.readFile = [&](std::string_view path, std::string &reason) -> PVDataRef {
        auto name = pv::Ref<PVStringRef>::adopt(newString(std::string(path)));
        PVStringRef why = nullptr;
        PVDataRef data = name ? readFile(name.get(), context, &why) : nullptr;
        if (!data) reason = why ? PVStringGetCStringPtr(why) : "the file cannot be read";
        PVRelease(why);
        return data;
      };
    }
    pv::json::Failure failure;
    PVTypeRef value = pv::json::createFromJson(document, failure, hooks);
    if (!value) reportFailure(error, 0, 0, &failure.path, failure.reason);
    return value;
  });
}

PVStringRef PVCreateJSONString(PVTypeRef value) noexcept {
  nlohmann::json json;
  std::string ignored;
  if (!pv::json::toJson(value, json, ignored)) return nullptr;
  return platform::guarded([&] { return newString(json.dump()); });
}

PVStringRef PVStringCreateBase64WithData(PVDataRef data) noexcept {
  if (PVGetTypeID(data) != PVDataGetTypeID()) return nullptr;
  return platform::guarded([&] { return newString(pv::base64::encode(pv::json::bytesOf(data))); });
}

PVDataRef PVDataCreateWithBase64String(PVStringRef text) noexcept {
  if (PVGetTypeID(text) != PVStringGetTypeID()) return nullptr;
  return platform::guarded([&]() -> PVDataRef {
    auto bytes = pv::base64::decode(
        {PVStringGetCStringPtr(text), static_cast<size_t>(PVStringGetUTF8Length(text))});
    return bytes ? pv::json::dataOf(*bytes) : nullptr;
  });
}

}  // extern "C"
