// Reading and writing the preferences document. The reader trusts nothing:
// any member of the wrong kind, a dangling identifier or a configuration
// that is not a dictionary makes the whole document corrupt.
#include "platform/prefs/document.hpp"

#include <nlohmann/json.hpp>

#include "platform/prefs/error.hpp"
#include "platform/values/json.hpp"

namespace zn {
namespace {

using nlohmann::json;

[[noreturn]] void corrupt() { fail(kZNStatusCorruptStore); }

json parse(std::string_view text) {
  json root = json::parse(text.begin(), text.end(), nullptr, false);
  if (root.is_discarded() || !root.is_object()) corrupt();
  return root;
}

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

const std::string &stringAt(const json &value) {
  if (!value.is_string()) corrupt();
  return value.get_ref<const std::string &>();
}

StringRef optionalString(const json &object, const char *key) {
  const json *value = optionalMember(object, key);
  return value ? makeString(stringAt(*value)) : StringRef();
}

DictionaryRef dictionaryAt(const json &value) {
  if (!value.is_object()) corrupt();
  std::string ignored;
  auto dictionary =
      DictionaryRef::adopt(static_cast<PVDictionaryRef>(pv::json::createFromJson(value, ignored)));
  // {"$data": ...} converts to data, which is no configuration either.
  if (!dictionary || PVGetTypeID(dictionary.get()) != PVDictionaryGetTypeID()) corrupt();
  return dictionary;
}

DictionaryRef optionalDictionary(const json &object, const char *key) {
  const json *value = optionalMember(object, key);
  return value ? dictionaryAt(*value) : DictionaryRef();
}

Layer readLayer(const json &value) {
  const json &object = objectAt(value);
  Layer layer;
  layer.type = makeString(stringAt(member(object, "type")));
  layer.configuration = optionalDictionary(object, "configuration");
  if (const json *extended = optionalMember(object, "extended")) {
    for (const auto &[entity, configuration] : objectAt(*extended).items()) {
      layer.extended.emplace(entity, dictionaryAt(configuration));
    }
  }
  return layer;
}

Service readService(const json &value) {
  const json &object = objectAt(value);
  Service service;
  service.id = makeString(stringAt(member(object, "id")));
  service.name = optionalString(object, "name");
  const json &enabled = member(object, "enabled");
  if (!enabled.is_boolean()) corrupt();
  service.enabled = enabled.get<bool>();
  for (const json &layer : arrayAt(object, "interfaces")) service.chain.push_back(readLayer(layer));
  for (const json &item : arrayAt(object, "protocols")) {
    const json &protocol = objectAt(item);
    service.protocols.push_back({makeString(stringAt(member(protocol, "type"))),
                                 optionalDictionary(protocol, "configuration")});
  }
  return service;
}

Set readSet(const json &value) {
  const json &object = objectAt(value);
  Set set;
  set.id = makeString(stringAt(member(object, "id")));
  set.name = optionalString(object, "name");
  for (const json &id : arrayAt(object, "services")) set.services.push_back(stringAt(id));
  if (const json *selected = optionalMember(object, "selectedVPNService")) {
    set.selected = stringAt(*selected);
  }
  return set;
}

int64_t generationOf(const json &root) {
  const json &generation = member(root, "generation");
  if (!generation.is_number_integer() || generation.get<int64_t>() < 1) corrupt();
  return generation.get<int64_t>();
}

json dictionaryJson(PVDictionaryRef dictionary) {
  json out;
  std::string reason;
  // Setters refuse what cannot be stored, so this holds for every session.
  if (!pv::json::toJson(dictionary, out, reason)) fail(kZNStatusFailed);
  return out;
}

void putString(json &object, const char *key, PVStringRef string) {
  if (string) object[key] = std::string(text(string));
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

json serviceJson(const Service &service) {
  json out{{"id", std::string(text(service.id.get()))}, {"enabled", service.enabled}};
  putString(out, "name", service.name.get());
  json &interfaces = out["interfaces"] = json::array();
  for (const Layer &layer : service.chain) interfaces.push_back(layerJson(layer));
  json &protocols = out["protocols"] = json::array();
  for (const Protocol &protocol : service.protocols) {
    json item{{"type", std::string(text(protocol.type.get()))}};
    if (protocol.configuration)
      item["configuration"] = dictionaryJson(protocol.configuration.get());
    protocols.push_back(std::move(item));
  }
  return out;
}

json setJson(const Set &set) {
  json out{{"id", std::string(text(set.id.get()))}, {"services", set.services}};
  putString(out, "name", set.name.get());
  if (!set.selected.empty()) out["selectedVPNService"] = set.selected;
  return out;
}

}  // namespace

Document parseDocument(std::string_view text) {
  json root = parse(text);
  Document document;
  document.generation = generationOf(root);
  if (const json *current = optionalMember(root, "currentSet")) {
    document.currentSet = stringAt(*current);
  }
  for (const json &set : arrayAt(root, "sets")) document.sets.push_back(readSet(set));
  for (const json &service : arrayAt(root, "services")) {
    document.services.push_back(readService(service));
  }
  if (!document.isWhole()) corrupt();
  return document;
}

int64_t parseGeneration(std::string_view text) { return generationOf(parse(text)); }

std::string serializeDocument(const Document &document, int64_t generation) {
  json root{{"generation", generation}};
  if (!document.currentSet.empty()) root["currentSet"] = document.currentSet;
  json &sets = root["sets"] = json::array();
  for (const Set &set : document.sets) sets.push_back(setJson(set));
  json &services = root["services"] = json::array();
  for (const Service &service : document.services) services.push_back(serviceJson(service));
  return root.dump(2) + "\n";
}

}  // namespace zn
