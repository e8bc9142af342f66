// UTF-8 and UTF-16 conversion for strings. Strict: overlong forms,
// surrogates in UTF-8 and unpaired surrogates in UTF-16 are rejected.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace pv::utf {

[[nodiscard]] bool isValidUtf8(std::string_view text);
// false (and `out` unspecified) when `text` is not valid UTF-8.
[[nodiscard]] bool utf8ToUtf16(std::string_view text, std::u16string &out);
[[nodiscard]] bool utf16ToUtf8(const char16_t *units, size_t count, std::string &out);

}  // namespace pv::utf
