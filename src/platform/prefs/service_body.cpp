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

// The type name that is the string here (borrowed from the arena).
PVStringRef typeAt(Reader &reader, Arena &arena) {
  std::string decoded;
  PVStringRef type = arena.name(reader.string(decoded));
  if (!type) corrupt();
  return type;
}

// Reads a layer's or a protocol's object: its type and configuration, and
// any other member through `other`, which reads it and says true, or says
// false for a member to step over.
template <typename Other>
void readTyped(Reader &reader, Arena &arena, StringRef &type, Configuration &configuration,
               Other other) {
  reader.object([&](std::string_view key) {
    if (key == "type") {
      type = StringRef::retain(typeAt(reader, arena));
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

// The interfaces array here, outermost first.
std::vector<Layer> readChain(Reader &reader, Arena &arena) {
  std::vector<Layer> chain;
  reader.array([&] { chain.push_back(readLayer(reader, arena)); });
  return chain;
}

// Types stored beside the interfaces must be theirs.
void checkTypes(const std::vector<PVStringRef> &types, const std::vector<Layer> &chain) {
  if (types.size() != chain.size()) corrupt();
  for (size_t i = 0; i < types.size(); ++i) {
    if (text(types[i]) != text(chain[i].type.get())) corrupt();
  }
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

ServiceBody decodeServiceBody(std::string_view stored, Arena &arena,
                              std::vector<PVStringRef> *outlineTypes) {
  ServiceBody body;
  std::vector<PVStringRef> types;
  bool hasTypes = false, hasInterfaces = false, hasProtocols = false;
  Reader reader(stored);
  const bool whole = reader.objectWhile([&](std::string_view key) {
    if (key == "types") {
      hasTypes = true;
      types.clear();
      reader.array([&] { types.push_back(typeAt(reader, arena)); });
    } else if (key == "protocols") {
      hasProtocols = true;
      body.protocols.clear();
      reader.array([&] { body.protocols.push_back(readProtocol(reader, arena)); });
    } else if (key == "interfaces") {
      // The outline is all there is to read when it came first.
      if (outlineTypes && hasTypes && hasProtocols) return false;
      hasInterfaces = true;
      body.chain = readChain(reader, arena);
    } else {
      reader.skip();
    }
    return true;
  });
  if (!whole) {
    if (types.empty() || !protocolsAreWhole(body.protocols)) corrupt();
    *outlineTypes = std::move(types);
    return body;
  }
  reader.end();
  if (!hasInterfaces || !hasProtocols || !body.isWhole()) corrupt();
  if (hasTypes) checkTypes(types, body.chain);
  return body;
}

std::vector<Layer> decodeServiceChain(std::string_view stored, Arena &arena,
                                      const std::vector<PVStringRef> &types) {
  std::vector<Layer> chain;
  bool hasInterfaces = false;
  Reader reader(stored);
  reader.object([&](std::string_view key) {
    if (key != "interfaces") {
      reader.skip();
      return;
    }
    hasInterfaces = true;
    chain = readChain(reader, arena);
  });
  reader.end();
  if (!hasInterfaces) corrupt();
  checkTypes(types, chain);
  return chain;
}

// Written by hand in the layout the reader expects, so that a configuration
// never decoded is copied as it is stored. The layer types and protocols
// come first: reading a service's type or a protocol then stops before the
// interfaces, most of the text.
std::string encodeServiceBody(const ServiceBody &body) {
  std::string out = "{\"types\":[";
  for (const Layer &layer : body.chain) {
    if (&layer != &body.chain.front()) out += ',';
    out += json(std::string(text(layer.type.get()))).dump();
  }
  out += "],\"protocols\":[";
  for (const Protocol &protocol : body.protocols) {
    if (&protocol != &body.protocols.front()) out += ',';
    appendTyped(out, protocol.type, protocol.configuration, [] {});
  }
  out += "],\"interfaces\":[";
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
  out += "]}";
  return out;
}

PVDictionaryRef Configuration::get() const {
  if (!decoded_ && arena_) decoded_ = decodeDictionary(stored_, *arena_);
  return decoded_.get();
}

}  // namespace zn
