// Strings: immutable and mutable text, UTF-8/UTF-16 conversion, formatting.
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <type_traits>

#include "platform/encoding/utf.hpp"
#include "platform/guard/guarded.hpp"
#include "platform/values/object.hpp"

PVString *PVString::make(std::string_view text) {
  void *memory = ::operator new(sizeof(PVString) + text.size() + 1);
  char *kept = static_cast<char *>(memory) + sizeof(PVString);
  std::memcpy(kept, text.data(), text.size());
  kept[text.size()] = '\0';
  return new (memory) PVString(kept, text.size(), false);
}

bool PVString::equals(const PVObject &other) const {
  return text() == static_cast<const PVString &>(other).text();
}

size_t PVString::hash() const {
  // Mutable text can change, so it is not cached; it hashes like immutable text.
  if (isMutable) return std::hash<std::string_view>{}(text()) | 1;
  size_t h = cachedHash.load(std::memory_order_relaxed);
  if (h == 0) {
    h = std::hash<std::string_view>{}(text()) | 1;  // 0 means "not computed yet"
    cachedHash.store(h, std::memory_order_relaxed);
  }
  return h;
}

void PVMutableString::assign(std::string text) {
  owned = std::move(text);
  text_ = owned.c_str();
  size_ = owned.size();
  utf16Count = pv::utf16Length(owned);
}

namespace {

const PVString *asString(PVStringRef s) { return s && s->kind == pv::Kind::String ? s : nullptr; }

PVStringRef makeString(std::string_view text) {
  return platform::guarded([&] { return PVString::make(text); });
}

// ASCII without U+0000, as identifiers and most names are: valid as it
// stands, checked in one pass.
bool isPlainAscii(std::string_view text) {
  bool plain = true;
  for (char c : text) plain &= static_cast<unsigned char>(c) - 1u < 0x7fu;  // 0x01 to 0x7f
  return plain;
}

// The encoding as a number, read without an enum load: a C caller may pass
// any int, and reading one out of range as the enum type is undefined.
using EncodingNumber = std::underlying_type_t<PVStringEncoding>;
EncodingNumber numberOf(const PVStringEncoding &encoding) {
  EncodingNumber number;
  std::memcpy(&number, &encoding, sizeof number);
  return number;
}

bool isKnown(EncodingNumber encoding) {
  return encoding >= kPVStringEncodingUTF8 && encoding <= kPVStringEncodingUTF16BE;
}

bool byteSwapped(EncodingNumber encoding) {
  constexpr bool little = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;
  return (encoding == kPVStringEncodingUTF16LE && !little) ||
         (encoding == kPVStringEncodingUTF16BE && little);
}

// Formats printf-style, passing each conversion but %@ to vsnprintf.
bool format(std::string &out, const char *fmt, va_list args) {
  for (const char *p = fmt; *p;) {
    if (*p != '%') {
      out += *p++;
      continue;
    }
    const char *start = p++;
    while (*p && strchr("-+ #0123456789.*", *p)) ++p;
    while (*p && strchr("hlLqjzt", *p)) ++p;
    if (!*p) return false;
    char conv = *p++;
    if (conv == '%') {
      out += '%';
      continue;
    }
    if (conv == '@') {
      PVTypeRef value = va_arg(args, PVTypeRef);
      if (value) {
        pv::object(value)->describe(out);
      } else {
        out += "(null)";
      }
      continue;
    }
    std::string conversion(start, p);
    va_list copy;
    va_copy(copy, args);
    int n = vsnprintf(nullptr, 0, conversion.c_str(), copy);
    va_end(copy);
    if (n < 0) return false;
    std::string piece(static_cast<size_t>(n) + 1, '\0');
    va_copy(copy, args);
    vsnprintf(piece.data(), piece.size(), conversion.c_str(), copy);
    va_end(copy);
    piece.resize(static_cast<size_t>(n));
    out += piece;
    // Advance the caller's list past the consumed argument(s).
    for (char c : conversion) {
      if (c == '*') (void)va_arg(args, int);
    }
    switch (conv) {
      case 'd':
      case 'i':
      case 'u':
      case 'x':
      case 'X':
      case 'o':
      case 'c':
        // L and q are glibc's synonyms of ll with integer conversions.
        if (conversion.find("ll") != std::string::npos ||
            conversion.find_first_of("Lqj") != std::string::npos) {
          (void)va_arg(args, long long);
        } else if (conversion.find('l') != std::string::npos ||
                   conversion.find('z') != std::string::npos ||
                   conversion.find('t') != std::string::npos) {
          (void)va_arg(args, long);
        } else {
          (void)va_arg(args, int);
        }
        break;
      case 'e':
      case 'E':
      case 'f':
      case 'F':
      case 'g':
      case 'G':
      case 'a':
      case 'A':
        if (conversion.find('L') != std::string::npos) {
          (void)va_arg(args, long double);
        } else {
          (void)va_arg(args, double);
        }
        break;
      case 'm':  // glibc's text of errno: no argument
        break;
      default:  // s, p
        (void)va_arg(args, void *);
    }
  }
  return true;
}

}  // namespace

extern "C" {

PVStringRef PVStringCreateWithCString(const char *utf8) noexcept {
  if (!utf8 || !pv::utf::isValidUtf8(utf8)) return nullptr;
  return makeString(utf8);
}

PVStringRef PVStringCreateConstant(const char *text, PVIndex length) noexcept {
  if (!text || length < 0) return nullptr;
  std::string_view literal(text, static_cast<size_t>(length));
  if (!pv::utf::isValidUtf8(literal) || literal.find('\0') != std::string_view::npos) {
    return nullptr;
  }
  return platform::guarded([&] { return new PVString(text, literal.size()); });
}

PVStringRef PVStringCreateWithBytes(const uint8_t *bytes, PVIndex count,
                                    PVStringEncoding requested) noexcept {
  if (count < 0 || (!bytes && count > 0)) return nullptr;
  const EncodingNumber encoding = numberOf(requested);
  if (!isKnown(encoding)) return nullptr;
  return platform::guarded([&]() -> PVStringRef {
    if (encoding == kPVStringEncodingUTF8) {
      std::string_view text(reinterpret_cast<const char *>(bytes), static_cast<size_t>(count));
      if (!isPlainAscii(text) &&
          (!pv::utf::isValidUtf8(text) || text.find('\0') != std::string_view::npos)) {
        return nullptr;
      }
      return makeString(text);
    }
    // An odd trailing byte is not a whole code unit and is dropped.
    std::u16string units(static_cast<size_t>(count) / 2, u'\0');
    if (!units.empty()) std::memcpy(units.data(), bytes, units.size() * 2);
    if (byteSwapped(encoding)) {
      for (char16_t &u : units) u = static_cast<char16_t>((u >> 8) | (u << 8));
    }
    return PVStringCreateWithCharacters(reinterpret_cast<const uint16_t *>(units.data()),
                                        static_cast<PVIndex>(units.size()));
  });
}

PVStringRef PVStringCreateWithCharacters(const uint16_t *chars, PVIndex count) noexcept {
  if (count < 0 || (!chars && count > 0)) return nullptr;
  return platform::guarded([&]() -> PVStringRef {
    std::string text;
    if (!pv::utf::utf16ToUtf8(reinterpret_cast<const char16_t *>(chars), static_cast<size_t>(count),
                              text)) {
      return nullptr;
    }
    return makeString(text);
  });
}

PVStringRef PVStringCreateWithFormatAndArguments(const char *fmt, va_list args) noexcept {
  if (!fmt) return nullptr;
  return platform::guarded([&]() -> PVStringRef {
    std::string out;
    va_list copy;
    va_copy(copy, args);
    bool ok = format(out, fmt, copy);
    va_end(copy);
    if (!ok || !pv::utf::isValidUtf8(out)) return nullptr;
    return makeString(out);
  });
}

PVStringRef PVStringCreateWithFormat(const char *fmt, ...) noexcept {
  va_list args;
  va_start(args, fmt);
  PVStringRef result = PVStringCreateWithFormatAndArguments(fmt, args);
  va_end(args);
  return result;
}

PVStringRef PVStringCreateCopy(PVStringRef string) noexcept {
  const PVString *s = asString(string);
  if (!s) return nullptr;
  if (!s->isMutable) return static_cast<PVStringRef>(PVRetain(s));
  return makeString(s->text());
}

PVIndex PVStringGetLength(PVStringRef string) noexcept {
  const PVString *s = asString(string);
  return s ? static_cast<PVIndex>(s->utf16Count) : 0;
}

void PVStringGetCharacters(PVStringRef string, PVIndex start, PVIndex count,
                           uint16_t *buffer) noexcept {
  const PVString *s = asString(string);
  if (!s || !buffer || start < 0 || count < 0 ||
      static_cast<size_t>(start + count) > s->utf16Count) {
    return;
  }
  platform::guarded([&] {
    std::u16string units;
    (void)pv::utf::utf8ToUtf16(s->text(), units);  // a string's text is valid UTF-8 by construction
    std::memcpy(buffer, units.data() + start, static_cast<size_t>(count) * 2);
  });
}

const char *PVStringGetCStringPtr(PVStringRef string) noexcept {
  const PVString *s = asString(string);
  return s ? s->cString() : nullptr;
}

PVIndex PVStringGetUTF8Length(PVStringRef string) noexcept {
  const PVString *s = asString(string);
  return s ? static_cast<PVIndex>(s->text().size()) : 0;
}

PVDataRef PVStringCreateExternalRepresentation(PVStringRef string,
                                               PVStringEncoding requested) noexcept {
  const PVString *s = asString(string);
  if (!s) return nullptr;
  const EncodingNumber encoding = numberOf(requested);
  if (!isKnown(encoding)) return nullptr;
  return platform::guarded([&]() -> PVDataRef {
    if (encoding == kPVStringEncodingUTF8) {
      std::string_view text = s->text();
      return PVDataCreate(reinterpret_cast<const uint8_t *>(text.data()),
                          static_cast<PVIndex>(text.size()));
    }
    std::u16string units;
    (void)pv::utf::utf8ToUtf16(s->text(), units);  // valid UTF-8 by construction
    if (byteSwapped(encoding)) {
      for (char16_t &u : units) u = static_cast<char16_t>((u >> 8) | (u << 8));
    }
    return PVDataCreate(reinterpret_cast<const uint8_t *>(units.data()),
                        static_cast<PVIndex>(units.size() * 2));
  });
}

PVMutableStringRef PVStringCreateMutable(void) noexcept {
  return platform::guarded([&] { return new PVMutableString(); });
}

void PVStringAppend(PVMutableStringRef string, PVStringRef appended) noexcept {
  const PVString *a = asString(appended);
  if (a) PVStringAppendCString(string, a->cString());
}

void PVStringAppendCString(PVMutableStringRef string, const char *utf8) noexcept {
  if (!string || string->kind != pv::Kind::String || !string->isMutable || !utf8 ||
      !pv::utf::isValidUtf8(utf8)) {
    return;
  }
  auto *mutableString = static_cast<PVMutableString *>(string);
  platform::guarded([&] { mutableString->assign(mutableString->owned + utf8); });
}

}  // extern "C"
