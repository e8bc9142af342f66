#include "platform/encoding/utf.hpp"

namespace pv::utf {
namespace {

// Decodes one code point at text[i]; returns its width, or 0 when invalid.
size_t decode(std::string_view text, size_t i, char32_t &cp) {
  auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
  unsigned char c = byte(i);
  if (c < 0x80) {
    cp = c;
    return 1;
  }
  size_t width;
  char32_t min;
  if ((c & 0xE0) == 0xC0) {
    width = 2, cp = c & 0x1F, min = 0x80;
  } else if ((c & 0xF0) == 0xE0) {
    width = 3, cp = c & 0x0F, min = 0x800;
  } else if ((c & 0xF8) == 0xF0) {
    width = 4, cp = c & 0x07, min = 0x10000;
  } else {
    return 0;
  }
  if (i + width > text.size()) return 0;
  for (size_t k = 1; k < width; ++k) {
    if ((byte(i + k) & 0xC0) != 0x80) return 0;
    cp = (cp << 6) | (byte(i + k) & 0x3F);
  }
  if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
  return width;
}

void append(std::string &out, char32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

}  // namespace

bool isValidUtf8(std::string_view text) {
  char32_t cp;
  for (size_t i = 0; i < text.size();) {
    size_t width = decode(text, i, cp);
    if (width == 0) return false;
    i += width;
  }
  return true;
}

bool utf8ToUtf16(std::string_view text, std::u16string &out) {
  out.clear();
  char32_t cp;
  for (size_t i = 0; i < text.size();) {
    size_t width = decode(text, i, cp);
    if (width == 0) return false;
    i += width;
    if (cp < 0x10000) {
      out += static_cast<char16_t>(cp);
    } else {
      cp -= 0x10000;
      out += static_cast<char16_t>(0xD800 | (cp >> 10));
      out += static_cast<char16_t>(0xDC00 | (cp & 0x3FF));
    }
  }
  return true;
}

bool utf16ToUtf8(const char16_t *units, size_t count, std::string &out) {
  out.clear();
  for (size_t i = 0; i < count; ++i) {
    char32_t u = units[i];
    if (u >= 0xD800 && u <= 0xDBFF) {
      if (i + 1 >= count || units[i + 1] < 0xDC00 || units[i + 1] > 0xDFFF) return false;
      u = 0x10000 + ((u - 0xD800) << 10) + (units[++i] - 0xDC00);
    } else if (u >= 0xDC00 && u <= 0xDFFF) {
      return false;
    }
    append(out, u);
  }
  return true;
}

}  // namespace pv::utf
