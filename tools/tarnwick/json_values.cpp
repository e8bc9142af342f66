#include "json_values.hpp"

#include <algorithm>
#include <array>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <utility>
#include <vector>

#include "failure.hpp"

namespace tarnwick {
namespace {

template <typename T>
using Ref = pv::Ref<T>;

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

[[noreturn]] void malformed(const JsonSource &source, const std::string &path,
                            const std::string &what) {
  std::string where = path.empty() ? "" : " at " + path;
  throw Failure(Exit::malformedPayload, source.name + where + ": " + what);
}

Ref<PVTypeRef> dataValue(const std::string &bytes) {
  return Ref<PVTypeRef>::adopt(PVDataCreate(reinterpret_cast<const uint8_t *>(bytes.data()),
                                            static_cast<PVIndex>(bytes.size())));
}

// {"$data": …} or {"$file": …}: the bytes as data; nullopt for any other object.
std::optional<Ref<PVTypeRef>> specialData(const Json &object, const JsonSource &source,
                                          const std::string &path) {
  bool isData = object.contains("$data");
  bool isFile = object.contains("$file");
  if (!isData && !isFile) return std::nullopt;
  const char *key = isData ? "$data" : "$file";
  if (object.size() != 1 || !object.at(key).is_string()) {
    malformed(source, path, std::string("a \"") + key + "\" object holds exactly one string");
  }
  const std::string &text = object.at(key).get_ref<const std::string &>();
  if (isData) {
    auto bytes = base64Decode(text);
    if (!bytes) malformed(source, path, "\"$data\" is not valid base64");
    return dataValue(*bytes);
  }
  std::filesystem::path file = source.directory / text;
  std::ifstream in(file, std::ios::binary);
  if (!in) malformed(source, path, "cannot read the \"$file\" " + file.string());
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) malformed(source, path, "cannot read the \"$file\" " + file.string());
  return dataValue(bytes);
}

}  // namespace

Ref<PVStringRef> makeString(const std::string &utf8) {
  auto string = Ref<PVStringRef>::adopt(PVStringCreateWithCString(utf8.c_str()));
  if (!string) throw Failure(Exit::failure, "text that is not UTF-8: cannot make a string of it");
  return string;
}

Ref<PVTypeRef> valueFromJson(const Json &json, const JsonSource &source, const std::string &path) {
  switch (json.type()) {
    case Json::value_t::string: {
      auto string = PVStringCreateWithCString(json.get_ref<const std::string &>().c_str());
      if (!string) malformed(source, path, "text that is not UTF-8");
      return Ref<PVTypeRef>::adopt(string);
    }
    case Json::value_t::boolean:
      return Ref<PVTypeRef>::retain(json.get<bool>() ? kPVBooleanTrue : kPVBooleanFalse);
    case Json::value_t::number_integer:
      return Ref<PVTypeRef>::adopt(PVNumberCreateWithInt64(json.get<int64_t>()));
    case Json::value_t::number_unsigned: {
      auto value = json.get<uint64_t>();
      if (value > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
        malformed(source, path, "an integer beyond the 64-bit range");
      }
      return Ref<PVTypeRef>::adopt(PVNumberCreateWithInt64(static_cast<int64_t>(value)));
    }
    case Json::value_t::number_float:
      return Ref<PVTypeRef>::adopt(PVNumberCreateWithDouble(json.get<double>()));
    case Json::value_t::array: {
      auto array = Ref<PVMutableArrayRef>::adopt(PVArrayCreateMutable());
      for (size_t i = 0; i < json.size(); ++i) {
        auto element = valueFromJson(json[i], source, path + "[" + std::to_string(i) + "]");
        PVArrayAppendValue(array.get(), element.get());
      }
      return Ref<PVTypeRef>::retain(array.get());
    }
    case Json::value_t::object: {
      if (auto data = specialData(json, source, path)) return *data;
      auto dictionary = Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutable());
      for (const auto &[key, member] : json.items()) {
        std::string memberPath = path.empty() ? key : path + "." + key;
        auto keyString = valueFromJson(Json(key), source, memberPath);
        auto value = valueFromJson(member, source, memberPath);
        PVDictionarySetValue(dictionary.get(), keyString.get(), value.get());
      }
      return Ref<PVTypeRef>::retain(dictionary.get());
    }
    default:
      malformed(source, path, "null (or binary) is not a value a payload can hold");
  }
}

Json jsonFromValue(PVTypeRef value) {
  if (!value) return nullptr;
  if (auto text = Ref<PVStringRef>::adopt(PVCreateJSONString(value))) {
    return Json::parse(PVStringGetCStringPtr(text.get()));
  }
  // No JSON form (a set, a handle): its description.
  auto description = Ref<PVStringRef>::adopt(PVCopyDescription(value));
  return textOf(description.get());
}

std::string tableText(const Json &json) {
  if (json.is_string()) return json.get<std::string>();
  auto isData = [](const Json &node) {
    return node.is_object() && node.size() == 1 && node.contains("$data") &&
           node["$data"].is_string();
  };
  auto size = [](const Json &node) {
    auto bytes = base64Decode(node["$data"].get<std::string>());
    // Built by appending: GCC 12 at -O3 reports a false -Wrestrict for a
    // literal prepended to a temporary string.
    std::string text("<");
    text.append(std::to_string(bytes ? bytes->size() : 0)).append(" bytes>");
    return text;
  };
  if (isData(json)) return size(json);
  Json shortened = json;
  std::function<void(Json &)> shorten = [&](Json &node) {
    if (isData(node)) {
      node = size(node);
    } else if (node.is_structured()) {
      for (auto &child : node) shorten(child);
    }
  };
  shorten(shortened);
  return shortened.dump();
}

std::string tableText(PVTypeRef value) { return value ? tableText(jsonFromValue(value)) : ""; }

std::string textOf(PVTypeRef value) {
  if (!value || PVGetTypeID(value) != PVStringGetTypeID()) return "";
  return PVStringGetCStringPtr(static_cast<PVStringRef>(value));
}

std::string kindOf(PVTypeRef value) {
  PVTypeID type = PVGetTypeID(value);
  if (type == PVStringGetTypeID()) return "a string";
  if (type == PVDataGetTypeID()) return "data";
  if (type == PVNumberGetTypeID()) return "a number";
  if (type == PVBooleanGetTypeID()) return "a boolean";
  if (type == PVArrayGetTypeID()) return "an array";
  if (type == PVDictionaryGetTypeID()) return "a dictionary";
  return "another kind of value";
}

std::string base64Encode(const uint8_t *bytes, size_t length) {
  std::string out;
  out.reserve((length + 2) / 3 * 4);
  for (size_t i = 0; i < length; i += 3) {
    uint32_t chunk = static_cast<uint32_t>(bytes[i]) << 16;
    if (i + 1 < length) chunk |= static_cast<uint32_t>(bytes[i + 1]) << 8;
    if (i + 2 < length) chunk |= bytes[i + 2];
    out += kAlphabet[(chunk >> 18) & 63];
    out += kAlphabet[(chunk >> 12) & 63];
    out += i + 1 < length ? kAlphabet[(chunk >> 6) & 63] : '=';
    out += i + 2 < length ? kAlphabet[chunk & 63] : '=';
  }
  return out;
}

std::optional<std::string> base64Decode(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  std::string out;
  for (size_t i = 0; i < text.size(); i += 4) {
    uint32_t chunk = 0;
    int padding = 0;
    for (size_t j = 0; j < 4; ++j) {
      char c = text[i + j];
      bool last = i + 4 == text.size();
      if (c == '=' && last && j >= 2 && (j == 3 || text[i + 3] == '=')) {
        ++padding;
        chunk <<= 6;
        continue;
      }
      size_t index = kAlphabet.find(c);
      if (index == std::string_view::npos || padding > 0) return std::nullopt;
      chunk = (chunk << 6) | static_cast<uint32_t>(index);
    }
    out += static_cast<char>((chunk >> 16) & 0xff);
    if (padding < 2) out += static_cast<char>((chunk >> 8) & 0xff);
    if (padding < 1) out += static_cast<char>(chunk & 0xff);
  }
  return out;
}

}  // namespace tarnwick
