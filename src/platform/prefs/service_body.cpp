// Reading and writing a service's body. The reader trusts nothing: a member
// of the wrong kind makes the whole body corrupt when the service is first
// used, a configuration that is no dictionary when it is first read.
#include "platform/prefs/service_body.hpp"

#include <nlohmann/json.hpp>

#include "platform/prefs/error.hpp"
#include "platform/prefs/stored_reader.hpp"
#include "platform/values/json.hpp"

namespace zn {
namespace {

using nlohmann::json;

[[noreturn]] void corrupt() { fail(kZNStatusCorruptStore); }

StringRef typeNamed(std::string_view text, Arena &arena) {
  PVStringRef type = arena.name(text);
  if (!type) corrupt();
  return StringRef::retain(type);
}

// Reads a layer's or a protocol's object: its type and configuration, and
// any other member through `other`, which reads it and says true, or says
// false for a member to step over.
template <typename Other>
void readTyped(Reader &reader, Arena &arena, StringRef &type, Configuration &configuration,
               Other other) {
  reader.object([&](std::string_view key) {
    if (key == "type") {
      std::string decoded;
      type = typeNamed(reader.string(decoded), arena);
    } else if (key == "configuration") {
      configuration = Configuration(reader.objectText(), arena);
    } else if (!other(key)) {
      reader.skip();
    }
  });
  if (!type) corrupt();
}

Layer readLayer(Reader &reader, Arena &arena) {
  Layer layer;
  readTyped(reader, arena, layer.type, layer.configuration, [&](std::string_view key) {
    if (key != "extended") return false;
    reader.object([&](std::string_view entity) {
      std::string name(entity);  // before the value is read: the key may be a view of a buffer
      layer.extended.insert_or_assign(std::move(name), Configuration(reader.objectText(), arena));
    });
    return true;
  });
  return layer;
}

Protocol readProtocol(Reader &reader, Arena &arena) {
  Protocol protocol;
  readTyped(reader, arena, protocol.type, protocol.configuration,
            [](std::string_view) { return false; });
  return protocol;
}

// A configuration as the body stores it: its stored text when it was never
// decoded, else its JSON form.
void appendConfiguration(std::string &out, const Configuration &configuration) {
  if (std::string_view stored = configuration.stored(); !stored.empty()) {
    out += stored;
    return;
  }
  json value;
  std::string reason;
  // Setters refuse what cannot be stored, so this holds for every session.
  if (!pv::json::toJson(configuration.get(), value, reason)) fail(kZNStatusFailed);
  out += value.dump();
}

// A layer's or a protocol's object; `extended` writes what lies between
// its configuration and its type (members in sorted order).
template <typename Extended>
void appendTyped(std::string &out, const StringRef &type, const Configuration &configuration,
                 Extended extended) {
  out += '{';
  if (configuration) {
    out += "\"configuration\":";
    appendConfiguration(out, configuration);
    out += ',';
  }
  extended();
  out += "\"type\":";
  out += json(std::string(text(type.get()))).dump();
  out += '}';
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
  ServiceBody body;
  bool hasInterfaces = false, hasProtocols = false;
  Reader reader(text);
  reader.object([&](std::string_view key) {
    if (key == "interfaces") {
      hasInterfaces = true;
      body.chain.clear();
      reader.array([&] { body.chain.push_back(readLayer(reader, arena)); });
    } else if (key == "protocols") {
      hasProtocols = true;
      body.protocols.clear();
      reader.array([&] { body.protocols.push_back(readProtocol(reader, arena)); });
    } else {
      reader.skip();
    }
  });
  reader.end();
  if (!hasInterfaces || !hasProtocols || !body.isWhole()) corrupt();
  return body;
}

// Written by hand in the layout the reader expects (members in the order a
// JSON library would sort them), so that a configuration never decoded is
// copied as it is stored.
std::string encodeServiceBody(const ServiceBody &body) {
  std::string out = "{\"interfaces\":[";
  for (const Layer &layer : body.chain) {
    if (&layer != &body.chain.front()) out += ',';
    appendTyped(out, layer.type, layer.configuration, [&] {
      if (layer.extended.empty()) return;
      out += "\"extended\":{";
      for (const auto &[entity, configuration] : layer.extended) {
        if (out.back() != '{') out += ',';
        out += json(entity).dump();
        out += ':';
        appendConfiguration(out, configuration);
      }
      out += "},";
    });
  }
  out += "],\"protocols\":[";
  for (const Protocol &protocol : body.protocols) {
    if (&protocol != &body.protocols.front()) out += ',';
    appendTyped(out, protocol.type, protocol.configuration, [] {});
  }
  out += "]}";
  return out;
}

PVDictionaryRef Configuration::get() const {
  if (!decoded_ && arena_) decoded_ = decodeDictionary(stored_, *arena_);
  return decoded_.get();
}

}  // namespace zn
