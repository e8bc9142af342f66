// Reading and writing a service's body. The reader trusts nothing: a member
// of the wrong kind makes the whole body corrupt when the service is first
// used, a configuration that is no dictionary when it is first read.
#include "platform/prefs/service_body.hpp"

#include <nlohmann/json.hpp>

#include "platform/prefs/error.hpp"
#include "platform/values/json.hpp"

namespace zn {
namespace {

using nlohmann::json;

[[noreturn]] void corrupt() { fail(kZNStatusCorruptStore); }

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

// Reads the body's outline: the members it names and the text of each
// value, never decoding a configuration, only finding where it ends. The
// configurations are decoded (and checked) when first read.
class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) {}

  // Calls `member(key)` for each member of the object here; `member` must
  // read the member's value.
  template <typename Member>
  void object(Member member) {
    expect('{');
    if (take('}')) return;
    do {
      std::string key = string();
      expect(':');
      member(key);
    } while (take(','));
    expect('}');
  }
  // Calls `element()` for each element of the array here.
  template <typename Element>
  void array(Element element) {
    expect('[');
    if (take(']')) return;
    do {
      element();
    } while (take(','));
    expect(']');
  }
  std::string string() {
    space();
    const size_t start = at_;
    if (!take('"')) corrupt();
    bool escaped = false;
    while (at_ < text_.size() && text_[at_] != '"') {
      if (text_[at_] == '\\') {
        escaped = true;
        ++at_;
      }
      ++at_;
    }
    if (!take('"')) corrupt();
    std::string_view token = text_.substr(start, at_ - start);
    if (!escaped) return std::string(token.substr(1, token.size() - 2));
    json decoded = json::parse(token.begin(), token.end(), nullptr, false);
    if (!decoded.is_string()) corrupt();
    return decoded.get<std::string>();
  }
  // The text of the object here, which must be one.
  std::string_view objectText() {
    space();
    if (at_ >= text_.size() || text_[at_] != '{') corrupt();
    return skip();
  }
  // Steps over the value here; its text.
  std::string_view skip() {
    space();
    const size_t start = at_;
    int depth = 0;
    do {
      if (at_ >= text_.size()) corrupt();
      char c = text_[at_];
      if (c == '"') {
        string();
        continue;
      }
      if (c == '{' || c == '[') ++depth;
      if (c == '}' || c == ']') --depth;
      if (depth < 0) corrupt();
      ++at_;
      // A number or a literal ends where a delimiter starts.
      if (depth == 0 && c != '}' && c != ']') {
        while (at_ < text_.size() && !isDelimiter(text_[at_])) ++at_;
      }
    } while (depth > 0);
    return text_.substr(start, at_ - start);
  }
  void end() {
    space();
    if (at_ != text_.size()) corrupt();
  }

 private:
  static bool isDelimiter(char c) {
    return c == ',' || c == '}' || c == ']' || c == ' ' || c == '\n' || c == '\t' || c == '\r';
  }
  void space() {
    while (at_ < text_.size() && (text_[at_] == ' ' || text_[at_] == '\n' ||
                                  text_[at_] == '\t' || text_[at_] == '\r')) {
      ++at_;
    }
  }
  bool take(char c) {
    space();
    if (at_ < text_.size() && text_[at_] == c) {
      ++at_;
      return true;
    }
    return false;
  }
  void expect(char c) {
    if (!take(c)) corrupt();
  }

  std::string_view text_;
  size_t at_ = 0;
};

StringRef typeNamed(const std::string &text, Arena &arena) {
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
  reader.object([&](const std::string &key) {
    if (key == "type") {
      type = typeNamed(reader.string(), arena);
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
  readTyped(reader, arena, layer.type, layer.configuration, [&](const std::string &key) {
    if (key != "extended") return false;
    reader.object([&](const std::string &entity) {
      layer.extended.insert_or_assign(entity, Configuration(reader.objectText(), arena));
    });
    return true;
  });
  return layer;
}

Protocol readProtocol(Reader &reader, Arena &arena) {
  Protocol protocol;
  readTyped(reader, arena, protocol.type, protocol.configuration,
            [](const std::string &) { return false; });
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
  reader.object([&](const std::string &key) {
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
  if (!decoded_ && arena_) {
    json value = json::parse(stored_.begin(), stored_.end(), nullptr, false);
    if (value.is_discarded()) corrupt();
    decoded_ = dictionaryAt(value, *arena_);
  }
  return decoded_.get();
}

}  // namespace zn
