#include "output.hpp"

#include <locale.h>
#include <wchar.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "failure.hpp"

namespace tarnwick {
namespace {

[[noreturn]] void cannotWrite(int error) {
  throw Failure(Exit::failure,
                std::string("cannot write to standard output: ") + std::strerror(error));
}

// The next code point of UTF-8 text at `i`, advancing `i`; -1 (one byte
// consumed) for a byte that starts no valid sequence.
long nextCodePoint(const std::string &text, size_t &i) {
  auto byte = [&](size_t at) { return static_cast<unsigned char>(text[at]); };
  unsigned char lead = byte(i);
  size_t length = lead < 0x80         ? 1
                  : (lead >> 5) == 6  ? 2
                  : (lead >> 4) == 14 ? 3
                  : (lead >> 3) == 30 ? 4
                                      : 0;
  if (length == 0 || i + length > text.size()) {
    ++i;
    return -1;
  }
  long point = length == 1 ? lead : lead & (0x7f >> length);
  for (size_t k = 1; k < length; ++k) {
    if ((byte(i + k) & 0xc0) != 0x80) {
      ++i;
      return -1;
    }
    point = (point << 6) | (byte(i + k) & 0x3f);
  }
  static const long shortest[] = {0, 0, 0x80, 0x800, 0x10000};
  if (point < shortest[length] || point > 0x10ffff || (point >= 0xd800 && point < 0xe000)) {
    ++i;
    return -1;
  }
  i += length;
  return point;
}

bool isControl(long point) { return point < 0x20 || (point >= 0x7f && point < 0xa0); }

// wcwidth in a UTF-8 locale, whatever the process's own locale is.
int columnsOf(long point) {
  if (point >= 0x20 && point < 0x7f) return 1;  // printable ASCII: most of any table, and cheap
  static locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(0));
  if (!utf8) return 1;
  locale_t previous = uselocale(utf8);
  int width = wcwidth(static_cast<wchar_t>(point));
  uselocale(previous);
  return width < 0 ? 1 : width;
}

// A value inside a line of text: a string bare, data as its size, a list as
// its items, a dictionary as "key=value" pairs; never JSON syntax.
bool isBlock(const Json &value) {
  if (value.is_object()) return !isDataJson(value);
  if (!value.is_array()) return false;
  return std::any_of(value.begin(), value.end(), [](const Json &item) { return isBlock(item); });
}

// The width of text as `shown` has made it visible.
size_t widthShown(const std::string &visible) {
  size_t width = 0;
  for (size_t i = 0; i < visible.size();) {
    width += static_cast<size_t>(columnsOf(nextCodePoint(visible, i)));
  }
  return width;
}

}  // namespace

void emit(const std::string &text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) cannotWrite(errno);
}

void finishOutput() {
  if (std::fflush(stdout) != 0) cannotWrite(errno);
  // An error an earlier write hid (and that errno no longer tells).
  if (std::ferror(stdout)) cannotWrite(EIO);
}

void printJson(const Json &json) { emit(json.dump(2) + "\n"); }

std::string shown(const std::string &text) {
  std::string out;
  for (size_t i = 0; i < text.size();) {
    size_t start = i;
    long point = nextCodePoint(text, i);
    char escape[32];
    if (point < 0) {
      std::snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned char>(text[start]));
    } else if (!isControl(point)) {
      out.append(text, start, i - start);
      continue;
    } else if (point == '\n' || point == '\t' || point == 0x1b) {
      std::strcpy(escape, point == '\n' ? "\\n" : point == '\t' ? "\\t" : "\\e");
    } else if (point < 0x80) {
      std::snprintf(escape, sizeof escape, "\\x%02lX", point);
    } else {
      std::snprintf(escape, sizeof escape, "\\u{%04lX}", point);
    }
    out += escape;
  }
  return out;
}

size_t displayWidth(const std::string &text) { return widthShown(shown(text)); }

void printTable(const std::vector<std::string> &header,
                const std::vector<std::vector<std::string>> &rows) {
  std::vector<size_t> widths(header.size());
  for (size_t column = 0; column < header.size(); ++column) {
    widths[column] = displayWidth(header[column]);
    for (const auto &row : rows)
      widths[column] = std::max(widths[column], displayWidth(row[column]));
  }
  std::string line;  // one buffer for every line
  auto printRow = [&](const std::vector<std::string> &row) {
    line.clear();
    for (size_t column = 0; column < row.size(); ++column) {
      std::string visible = shown(row[column]);
      line += visible;
      if (column + 1 < row.size()) line.append(widths[column] - widthShown(visible) + 2, ' ');
    }
    line += '\n';
    emit(line);
  };
  printRow(header);
  for (const auto &row : rows) printRow(row);
}

void printFields(const Json &object, size_t indent) {
  size_t width = 0;
  for (const auto &[key, value] : object.items()) {
    if (!isBlock(value)) width = std::max(width, displayWidth(key));
  }
  std::string pad(indent, ' ');
  for (const auto &[key, value] : object.items()) {
    if (!isBlock(value)) {
      emit(pad + shown(key) + std::string(width - displayWidth(key) + 2, ' ') +
           shown(tableText(value)) + "\n");
      continue;
    }
    emit(pad + shown(key) + "\n");
    if (value.is_object()) {
      printFields(value, indent + 2);
      continue;
    }
    // A list with dictionaries in it: each item under its position.
    Json numbered = Json::object();
    for (size_t i = 0; i < value.size(); ++i) numbered[std::to_string(i + 1)] = value[i];
    printFields(numbered, indent + 2);
  }
}

void note(const std::string &text) { std::fprintf(stderr, "tarnwick: %s\n", shown(text).c_str()); }

}  // namespace tarnwick
