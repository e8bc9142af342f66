// The reader of stored JSON text. Configurations are decoded here rather
// than through a general JSON library: reading a large store decodes one
// or two small configurations per service, and a general parser's lexer
// and intermediate tree cost several times what the values themselves do.
#include "platform/prefs/stored_reader.hpp"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>

#include "platform/encoding/base64.hpp"
#include "platform/prefs/error.hpp"

namespace zn {
namespace {

bool isDelimiter(char c) {
  return c == ',' || c == '}' || c == ']' || c == ' ' || c == '\n' || c == '\t' || c == '\r';
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Steps over one or more digits at `at`; false when there is none.
bool digits(std::string_view token, size_t &at) {
  const size_t start = at;
  while (at < token.size() && isDigit(token[at])) ++at;
  return at > start;
}

// JSON's number grammar, which the conversions below are laxer than; true
// when the number has a fraction or an exponent.
bool checkNumber(std::string_view token) {
  size_t at = token.starts_with('-') ? 1 : 0;
  if (at < token.size() && token[at] == '0') {
    ++at;
  } else if (!digits(token, at)) {
    corrupt();
  }
  bool isFloat = false;
  if (at < token.size() && token[at] == '.') {
    ++at;
    if (!digits(token, at)) corrupt();
    isFloat = true;
  }
  if (at < token.size() && (token[at] == 'e' || token[at] == 'E')) {
    ++at;
    if (at < token.size() && (token[at] == '+' || token[at] == '-')) ++at;
    if (!digits(token, at)) corrupt();
    isFloat = true;
  }
  if (at != token.size()) corrupt();
  return isFloat;
}

PVTypeRef numberOf(std::string_view token) {
  const char *first = token.data(), *last = token.data() + token.size();
  if (!checkNumber(token)) {
    int64_t integer = 0;
    if (std::from_chars(first, last, integer).ec == std::errc()) {
      return PVNumberCreateWithInt64(integer);
    }
    // A commit writes integers of 64 bits; a longer one is read as the
    // floating number it rounds to, a positive one that would fit 64
    // unsigned bits is no value at all.
    uint64_t unsignedInteger = 0;
    if (!token.starts_with('-') &&
        std::from_chars(first, last, unsignedInteger).ec == std::errc()) {
      corrupt();
    }
  }
  double floating = 0;
  if (std::from_chars(first, last, floating).ec != std::errc() || !std::isfinite(floating)) {
    corrupt();
  }
  return PVNumberCreateWithDouble(floating);
}

using TypeRef = pv::Ref<PVTypeRef>;

TypeRef held(PVTypeRef value) {
  if (!value) corrupt();
  return TypeRef::adopt(value);
}

constexpr int kMaxDepth = 256;  // as deep as a commit writes

TypeRef valueAt(Reader &reader, Arena &arena, int depth);

// {"$data": "<base64>"} is data; any other object a dictionary.
TypeRef objectAt(Reader &reader, Arena &arena, int depth) {
  auto dictionary = pv::Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutable());
  if (!dictionary) throw std::bad_alloc();
  PVStringRef dataKey = nullptr;
  reader.object([&](std::string_view key) {
    PVStringRef name = arena.name(key);
    if (!name) corrupt();
    if (key == "$data") dataKey = name;
    TypeRef member = valueAt(reader, arena, depth + 1);
    PVDictionarySetValue(dictionary.get(), name, member.get());
  });
  if (!dataKey || PVDictionaryGetCount(dictionary.get()) != 1) {
    return TypeRef::adopt(dictionary.release());
  }
  PVTypeRef encoded = PVDictionaryGetValue(dictionary.get(), dataKey);
  if (PVGetTypeID(encoded) != PVStringGetTypeID()) corrupt();
  auto bytes = pv::base64::decode(text(static_cast<PVStringRef>(encoded)));
  if (!bytes) corrupt();
  return held(PVDataCreate(reinterpret_cast<const uint8_t *>(bytes->data()),
                           static_cast<PVIndex>(bytes->size())));
}

TypeRef valueAt(Reader &reader, Arena &arena, int depth) {
  if (depth > kMaxDepth) corrupt();
  switch (reader.peek()) {
    case '{':
      return objectAt(reader, arena, depth);
    case '[': {
      auto array = pv::Ref<PVMutableArrayRef>::adopt(PVArrayCreateMutable());
      if (!array) throw std::bad_alloc();
      reader.array([&] {
        TypeRef element = valueAt(reader, arena, depth + 1);
        PVArrayAppendValue(array.get(), element.get());
      });
      return TypeRef::adopt(array.release());
    }
    case '"': {
      std::string decoded;
      std::string_view string = reader.string(decoded);
      return held(PVStringCreateWithBytes(reinterpret_cast<const uint8_t *>(string.data()),
                                          static_cast<PVIndex>(string.size()),
                                          kPVStringEncodingUTF8));
    }
    default: {
      std::string_view token = reader.skip();
      if (token == "true") return TypeRef::retain(kPVBooleanTrue);
      if (token == "false") return TypeRef::retain(kPVBooleanFalse);
      return held(numberOf(token));  // null, too, is no property value
    }
  }
}

}  // namespace

std::string_view Reader::string(std::string &decoded) {
  space();
  const size_t start = at_;
  if (!stepOverString()) return text_.substr(start + 1, at_ - start - 2);
  // Escapes are rare in stored text: undone by the general parser.
  std::string_view token = text_.substr(start, at_ - start);
  nlohmann::json value = nlohmann::json::parse(token.begin(), token.end(), nullptr, false);
  if (!value.is_string()) corrupt();
  decoded = value.get<std::string>();
  return decoded;
}

std::string_view Reader::objectText() {
  if (peek() != '{') corrupt();
  return skip();
}

std::string_view Reader::skip() {
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

char Reader::peek() {
  space();
  return at_ < text_.size() ? text_[at_] : '\0';
}

void Reader::end() {
  space();
  if (at_ != text_.size()) corrupt();
}

// Steps over the string that starts here, finding its end a block at a
// time (stored text is mostly strings); true when it holds an escape.
bool Reader::stepOverString() {
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

void Reader::space() {
  while (at_ < text_.size() &&
         (text_[at_] == ' ' || text_[at_] == '\n' || text_[at_] == '\t' || text_[at_] == '\r')) {
    ++at_;
  }
}

bool Reader::take(char c) {
  space();
  if (at_ < text_.size() && text_[at_] == c) {
    ++at_;
    return true;
  }
  return false;
}

void Reader::expect(char c) {
  if (!take(c)) corrupt();
}

DictionaryRef decodeDictionary(std::string_view text, Arena &arena) {
  Reader reader(text);
  if (reader.peek() != '{') corrupt();
  TypeRef value = valueAt(reader, arena, 0);
  reader.end();
  // {"$data": ...} is data, which is no configuration either.
  if (PVGetTypeID(value.get()) != PVDictionaryGetTypeID()) corrupt();
  return DictionaryRef::retain(static_cast<PVDictionaryRef>(value.get()));
}

}  // namespace zn
