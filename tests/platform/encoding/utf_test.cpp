// Strict UTF-8 and UTF-16 conversion.
#include "platform/encoding/utf.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

using pv::utf::isValidUtf8;
using pv::utf::utf16ToUtf8;
using pv::utf::utf8ToUtf16;

TEST(Utf8Validation, AcceptsEveryWidthUpToItsBoundaries) {
  for (const char *text :
       {"", "plain", "\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
        "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_TRUE(isValidUtf8(text)) << testing::PrintToString(text);
  }
}

TEST(Utf8Validation, RejectsOverlongsSurrogatesOutOfRangeAndBrokenSequences) {
  for (const char *text : {
           "\xC0\x80", "\xC1\xBF",                  // overlong two-byte forms
           "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF",      // overlong three- and four-byte forms
           "\xED\xA0\x80", "\xED\xBF\xBF",          // surrogates
           "\xF4\x90\x80\x80", "\xF5\x80\x80\x80",  // beyond U+10FFFF
           "\xF8\x88\x80\x80\x80", "\xFF", "\xFE",  // no such lead byte
           "\x80", "a\xBF",                         // continuation without a lead
           "\xE2\x82", "\xF0\x9F\x98",              // cut short
           "\xC3\x28", "\xE2\x28\xA1",              // lead followed by a non-continuation
       }) {
    EXPECT_FALSE(isValidUtf8(text)) << testing::PrintToString(text);
  }
  std::u16string out;
  EXPECT_FALSE(utf8ToUtf16("ok\xC0\x80", out));
}

TEST(Utf16Conversion, RoundTripsBoundaryCodePoints) {
  const std::string utf8 = "\x7F\xC2\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF";
  const std::u16string utf16 = {0x7F, 0x80, 0xFFFF, 0xD800, 0xDC00, 0xDBFF, 0xDFFF};
  std::u16string units;
  ASSERT_TRUE(utf8ToUtf16(utf8, units));
  EXPECT_EQ(units, utf16);
  std::string text;
  ASSERT_TRUE(utf16ToUtf8(utf16.data(), utf16.size(), text));
  EXPECT_EQ(text, utf8);
  // A NUL unit is a character like any other.
  const char16_t nul[] = {u'a', 0, u'b'};
  ASSERT_TRUE(utf16ToUtf8(nul, 3, text));
  EXPECT_EQ(text, std::string("a\0b", 3));
}

}  // namespace
