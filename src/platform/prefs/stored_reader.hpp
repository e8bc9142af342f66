// Reads the JSON text the store keeps for a service: the body's outline
// without decoding a configuration (only finding where each ends), and a
// configuration straight into property values when it is first read. The
// reader trusts nothing: anything that is not what a commit writes throws
// kZNStatusCorruptStore.
#pragma once

#include <string>
#include <string_view>

#include "platform/prefs/model.hpp"

namespace zn {

class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) {}

  // Calls `member(key)` for each member of the object here; `member` must
  // read the member's value. The key is valid during the call.
  template <typename Member>
  void object(Member member) {
    objectWhile([&](std::string_view key) {
      member(key);
      return true;
    });
  }
  // As object(), for a reader that may stop early: `member` says false to
  // stop right after it, leaving the rest of the text unread. True when the
  // whole object was read.
  template <typename Member>
  bool objectWhile(Member member) {
    expect('{');
    if (take('}')) return true;
    std::string decoded;
    do {
      std::string_view key = string(decoded);
      expect(':');
      if (!member(key)) return false;
    } while (take(','));
    expect('}');
    return true;
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
  std::string_view string(std::string &decoded);
  // The text of the object here, which must be one.
  std::string_view objectText();
  // Steps over the value here; its text.
  std::string_view skip();
  // The first character of the value here, or U+0000 at the end.
  char peek();
  void end();

 private:
  bool stepOverString();
  void space();
  bool take(char c);
  void expect(char c);

  std::string_view text_;
  size_t at_ = 0;
};

// The dictionary a stored configuration's text holds, its keys taken from
// `arena`.
DictionaryRef decodeDictionary(std::string_view text, Arena &arena);

}  // namespace zn
