// Reading and writing a service's body. The reader trusts nothing: a member
// of the wrong kind or a configuration that is not a dictionary makes the
// whole body corrupt.
#include "platform/prefs/service_body.hpp"

#include <nlohmann/json.hpp>

#include "platform/prefs/error.hpp"
#include "platform/values/json.hpp"

namespace zn {
namespace {

using nlohmann::json;

[[noreturn]] void corrupt() { fail(kZNStatusCorruptStore); }

const json *optionalMember(const json &object, const char *key) {
  auto it = object.find(key);
  return it == object.end() ? nullptr : &*it;
}

const json &member(const json &object, const char *key) {
  const json *value = optionalMember(object, key);
  if (!value) corrupt();
  return *value;
}

const json &objectAt(const json &value) {
  if (!value.is_object()) corrupt();
  return value;
}

const json &arrayAt(const json &object, const char *key) {
  const json &value = member(object, key);
  if (!value.is_array()) corrupt();
  return value;
}

StringRef typeAt(const json &object, Arena &arena) {
  const json &value = member(object, "type");
  if (!value.is_string()) corrupt();
  PVStringRef type = arena.name(value.get_ref<const std::string &>());
  if (!type) corrupt();
  return StringRef::retain(type);
}

DictionaryRef dictionaryAt(const json &value, Arena &arena) {
  if (!value.is_object()) corrupt();
  pv::json::Failure ignored;
  pv::json::Hooks hooks{[&](std::string_view key) { return arena.name(key); }, {}};
  auto dictionary = DictionaryRef::adopt(
      static_cast<PVDictionaryRef>(pv::json::createFromJson(value, ignored, hooks)));
  // {"$data": ...} converts to data, which is no configuration either.
  if (!dictionary || PVGetTypeID(dictionary.get()) != PVDictionaryGetTypeID()) corrupt();
  return dictionary;
}

DictionaryRef optionalDictionary(const json &object, const char *key, Arena &arena) {
  const json *value = optionalMember(object, key);
  return value ? dictionaryAt(*value, arena) : DictionaryRef();
}

Layer readLayer(const json &value, Arena &arena) {
  const json &object = objectAt(value);
  Layer layer;
  layer.type = typeAt(object, arena);
  layer.configuration = optionalDictionary(object, "configuration", arena);
  if (const json *extended = optionalMember(object, "extended")) {
    for (const auto &[entity, configuration] : objectAt(*extended).items()) {
      layer.extended.emplace(entity, dictionaryAt(configuration, arena));
    }
  }
  return layer;
}

json dictionaryJson(PVDictionaryRef dictionary) {
  json out;
  std::string reason;
  // Setters refuse what cannot be stored, so this holds for every session.
  if (!pv::json::toJson(dictionary, out, reason)) fail(kZNStatusFailed);
  return out;
}

json layerJson(const Layer &layer) {
  json out{{"type", std::string(text(layer.type.get()))}};
  if (layer.configuration) out["configuration"] = dictionaryJson(layer.configuration.get());
  if (!layer.extended.empty()) {
    json &extended = out["extended"] = json::object();
    for (const auto &[entity, configuration] : layer.extended) {
      extended[entity] = dictionaryJson(configuration.get());
    }
  }
  return out;
}

}  // namespace

StringRef storedString(std::string_view text) {
  auto string = StringRef::adopt(
      PVStringCreateWithBytes(reinterpret_cast<const uint8_t *>(text.data()),
                              static_cast<PVIndex>(text.size()), kPVStringEncodingUTF8));
  if (!string) corrupt();
  return string;
}

ServiceBody decodeServiceBody(std::string_view text, Arena &arena) {
  json root = json::parse(text.begin(), text.end(), nullptr, false);
  if (root.is_discarded() || !root.is_object()) corrupt();
  ServiceBody body;
  for (const json &layer : arrayAt(root, "interfaces"))
    body.chain.push_back(readLayer(layer, arena));
  for (const json &item : arrayAt(root, "protocols")) {
    const json &protocol = objectAt(item);
    body.protocols.push_back(
        {typeAt(protocol, arena), optionalDictionary(protocol, "configuration", arena)});
  }
  if (!body.isWhole()) corrupt();
  return body;
}

std::string encodeServiceBody(const ServiceBody &body) {
  json out;
  json &interfaces = out["interfaces"] = json::array();
  for (const Layer &layer : body.chain) interfaces.push_back(layerJson(layer));
  json &protocols = out["protocols"] = json::array();
  for (const Protocol &protocol : body.protocols) {
    json item{{"type", std::string(text(protocol.type.get()))}};
    if (protocol.configuration)
      item["configuration"] = dictionaryJson(protocol.configuration.get());
    protocols.push_back(std::move(item));
  }
  return out.dump();
}

}  // namespace zn
