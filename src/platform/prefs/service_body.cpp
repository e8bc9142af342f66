// Reading and writing a service's body. The reader trusts nothing: a member
// of the wrong kind makes the whole body corrupt when the service is first
// used, a configuration that is no dictionary when it is first read.
#include "platform/prefs/service_body.hpp"

#include <nlohmann/json.hpp>

#include <cstring>

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
  // read the member's value. The key is valid during the call.
  template <typename Member>
  void object(Member member) {
    expect('{');
    if (take('}')) return;
    std::string decoded;
    do {
      std::string_view key = string(decoded);
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
  // The string here: a view of the text itself, or of `decoded` holding it
  // with its escapes undone when it has any.
  std::string_view string(std::string &decoded) {
    space();
    const size_t start = at_;
    if (!stepOverString()) return text_.substr(start + 1, at_ - start - 2);
    std::string_view token = text_.substr(start, at_ - start);
    json value = json::parse(token.begin(), token.end(), nullptr, false);
    if (!value.is_string()) corrupt();
    decoded = value.get<std::string>();
    return decoded;
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
        stepOverString();
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
  // Steps over the string that starts here, finding its end a block at a
  // time (a body is mostly strings); true when it holds an escape.
  bool stepOverString() {
    if (!take('"')) corrupt();
    bool escaped = false;
    for (;;) {
      const char *from = text_.data() + at_;
      const size_t left = text_.size() - at_;
      const auto *quote = static_cast<const char *>(std::memchr(from, '"', left));
      if (!quote) corrupt();
      const auto *backslash = static_cast<const char *>(std::memchr(from, '\\', quote - from));
      if (!backslash) {
        at_ += quote - from + 1;
        return escaped;
      }
      escaped = true;
      at_ += backslash - from + 2;  // the backslash and the character it escapes
      if (at_ > text_.size()) corrupt();
    }
  }
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
  if (!decoded_ && arena_) {
    json value = json::parse(stored_.begin(), stored_.end(), nullptr, false);
    if (value.is_discarded()) corrupt();
    decoded_ = dictionaryAt(value, *arena_);
  }
  return decoded_.get();
}

}  // namespace zn
