// Strings: creation from every encoding, UTF-16 views, external forms,
// mutation and formatting.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "platform/values/object.hpp"
#include "support/test_support.hpp"
#include "tarnwick/platform/ref.hpp"
#include "tarnwick/platform/values.h"

// A constant with characters of every UTF-8 width: its UTF-16 length is
// counted at compile time.
PV_DEFINE_CONSTANT_STRING(kValuesTestWideConstant, "a\u00e9\u20ac\U0001F600")

namespace {

using Str = pv::Ref<PVStringRef>;
using tw::test::textOf;

std::vector<uint8_t> bytes(PVDataRef data) {
  const uint8_t *p = PVDataGetBytePtr(data);
  return std::vector<uint8_t>(p, p + PVDataGetLength(data));
}

// "aé€😀" in the three encodings.
const std::string kWideUtf8 = "a\u00e9\u20ac\U0001F600";
const std::vector<uint8_t> kWideLE = {0x61, 0x00, 0xE9, 0x00, 0xAC, 0x20, 0x3D, 0xD8, 0x00, 0xDE};
const std::vector<uint8_t> kWideBE = {0x00, 0x61, 0x00, 0xE9, 0x20, 0xAC, 0xD8, 0x3D, 0xDE, 0x00};
const std::vector<uint8_t> &kWideHost =
    __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? kWideLE : kWideBE;

Str fromBytes(const std::vector<uint8_t> &b, PVStringEncoding encoding, size_t count) {
  return Str::adopt(PVStringCreateWithBytes(b.data(), static_cast<PVIndex>(count), encoding));
}
Str fromBytes(const std::vector<uint8_t> &b, PVStringEncoding encoding) {
  return fromBytes(b, encoding, b.size());
}

TEST(StringCreation, DecodesEachEncodingAndRefusesWhatIsNotText) {
  const struct {
    std::vector<uint8_t> bytes;
    PVStringEncoding encoding;
    const char *expected;  // nullptr: refused
  } cases[] = {
      {kWideLE, kPVStringEncodingUTF16LE, kWideUtf8.c_str()},
      {kWideBE, kPVStringEncodingUTF16BE, kWideUtf8.c_str()},
      {kWideHost, kPVStringEncodingUTF16, kWideUtf8.c_str()},
      // The same two bytes are a letter in one order and a lone surrogate in the other.
      {{0x00, 0xD8}, kPVStringEncodingUTF16BE, "\u00d8"},
      {{0x00, 0xD8}, kPVStringEncodingUTF16LE, nullptr},
      {{0x3D, 0xD8}, kPVStringEncodingUTF16LE, nullptr},
      // An odd UTF-16 byte count drops the last byte.
      {{0x61, 0x00, 0x62}, kPVStringEncodingUTF16LE, "a"},
      {{0x61}, kPVStringEncodingUTF16LE, ""},
      {{'a', 0, 'b'}, kPVStringEncodingUTF8, nullptr},  // embedded NUL
      {{0xE2, 0x82}, kPVStringEncodingUTF8, nullptr},
  };
  for (const auto &c : cases) {
    auto made = fromBytes(c.bytes, c.encoding);
    EXPECT_EQ(made ? textOf(made.get()) : "(refused)", c.expected ? c.expected : "(refused)")
        << c.encoding << " case " << (&c - cases);
  }
  EXPECT_EQ(PVStringCreateWithCString("\xC0\xAF"), nullptr);
  EXPECT_EQ(PVStringCreateWithCString("ok\xED\xA0\x80"), nullptr);
  EXPECT_EQ(PVStringCreateWithCString(nullptr), nullptr);
  const std::vector<uint8_t> withNul = {'a', 0, 'b'};
  EXPECT_EQ(textOf(fromBytes(withNul, kPVStringEncodingUTF8, 1).get()), "a");
  EXPECT_EQ(PVStringCreateWithBytes(withNul.data(), -1, kPVStringEncodingUTF8), nullptr);
  EXPECT_EQ(PVStringCreateWithBytes(nullptr, 2, kPVStringEncodingUTF8), nullptr);
  EXPECT_EQ(PVStringCreateWithBytes(withNul.data(), 1, static_cast<PVStringEncoding>(9)), nullptr);
  auto empty = Str::adopt(PVStringCreateWithBytes(nullptr, 0, kPVStringEncodingUTF16LE));
  ASSERT_TRUE(empty);
  EXPECT_EQ(PVStringGetLength(empty.get()), 0);
}

TEST(StringCreation, UnpairedSurrogatesGiveNull) {
  // Lone high, lone low, high then letter, two highs, reversed, a pair cut in half.
  const std::vector<std::vector<uint16_t>> unpaired = {
      {'a', 0xD83D}, {0xDE00, 'a'}, {0xD83D, 'a'}, {0xD83D, 0xD83D}, {0xDE00, 0xD83D}, {0xD83D}};
  for (const auto &units : unpaired) {
    EXPECT_EQ(PVStringCreateWithCharacters(units.data(), static_cast<PVIndex>(units.size())),
              nullptr);
  }
  const uint16_t pair[] = {0xD83D, 0xDE00};
  EXPECT_EQ(textOf(Str::adopt(PVStringCreateWithCharacters(pair, 2)).get()), "\U0001F600");
}

TEST(StringContents, LengthCountsUtf16UnitsAndCharactersCopiesThem) {
  auto made = Str::adopt(PVStringCreateWithCString(kWideUtf8.c_str()));
  for (PVStringRef s : {made.get(), kValuesTestWideConstant}) {
    EXPECT_EQ(PVStringGetLength(s), 5);  // the emoji takes two units
    EXPECT_EQ(PVStringGetUTF8Length(s), 10);
    uint16_t units[3] = {0, 0, 0};
    PVStringGetCharacters(s, 2, 3, units);
    EXPECT_EQ(units[0], 0x20AC);
    EXPECT_EQ(units[1], 0xD83D);
    EXPECT_EQ(units[2], 0xDE00);
    uint16_t untouched[2] = {7, 7};
    PVStringGetCharacters(s, 4, 2, untouched);  // past the end: nothing copied
    EXPECT_EQ(untouched[0], 7);
  }
  EXPECT_EQ(PVStringGetLength(nullptr), 0);
  EXPECT_EQ(PVStringGetCStringPtr(nullptr), nullptr);
}

TEST(StringContents, ExternalRepresentationEncodesWithoutMarkOrTerminator) {
  auto s = Str::adopt(PVStringCreateWithCString(kWideUtf8.c_str()));
  auto utf8 = pv::Ref<PVDataRef>::adopt(
      PVStringCreateExternalRepresentation(s.get(), kPVStringEncodingUTF8));
  const std::vector<uint8_t> expectedUtf8(kWideUtf8.begin(), kWideUtf8.end());
  EXPECT_EQ(bytes(utf8.get()), expectedUtf8);
  const std::pair<PVStringEncoding, std::vector<uint8_t>> forms[] = {
      {kPVStringEncodingUTF16LE, kWideLE},
      {kPVStringEncodingUTF16BE, kWideBE},
      {kPVStringEncodingUTF16, kWideHost}};
  for (const auto &[encoding, expected] : forms) {
    auto data = pv::Ref<PVDataRef>::adopt(PVStringCreateExternalRepresentation(s.get(), encoding));
    EXPECT_EQ(bytes(data.get()), expected) << encoding;
  }
  EXPECT_EQ(PVStringCreateExternalRepresentation(s.get(), static_cast<PVStringEncoding>(0)),
            nullptr);
  auto empty = Str::adopt(PVStringCreateWithCString(""));
  auto none = pv::Ref<PVDataRef>::adopt(
      PVStringCreateExternalRepresentation(empty.get(), kPVStringEncodingUTF16LE));
  ASSERT_TRUE(none);
  EXPECT_EQ(PVDataGetLength(none.get()), 0);
}

TEST(MutableString, AppendsValidTextAndIgnoresEverythingElse) {
  auto s = pv::Ref<PVMutableStringRef>::adopt(PVStringCreateMutable());
  PVStringAppendCString(s.get(), "a");
  PVStringAppend(s.get(), kValuesTestWideConstant);
  PVStringAppendCString(s.get(), "\xFF");  // invalid UTF-8: ignored
  PVStringAppend(s.get(), nullptr);
  EXPECT_EQ(textOf(s.get()), "a" + kWideUtf8);
  EXPECT_EQ(PVStringGetLength(s.get()), 6);
  PVStringAppend(s.get(), s.get());  // appending to itself doubles it
  EXPECT_EQ(PVStringGetLength(s.get()), 12);

  // An immutable string cannot be changed through a cast.
  auto fixed = Str::adopt(PVStringCreateWithCString("fixed"));
  PVStringAppendCString(const_cast<PVMutableStringRef>(fixed.get()), "!");
  EXPECT_EQ(textOf(fixed.get()), "fixed");
}

std::string formatted(PVStringRef s) { return textOf(Str::adopt(s).get()); }

TEST(StringFormat, PrintfConversionsMixWithValueDescriptions) {
  EXPECT_EQ(formatted(PVStringCreateWithFormat("%s|%d|%ld|%lld|%zu|%5.2f|%%|%c|%x", "s", -3, 40L,
                                               5000000000LL, size_t{6}, 3.14159, 'z', 255)),
            "s|-3|40|5000000000|6| 3.14|%|z|ff");
  EXPECT_EQ(formatted(PVStringCreateWithFormat("[%*d][%-*s][%.*s]", 4, 7, 3, "a", 2, "xyz")),
            "[   7][a  ][xy]");
  EXPECT_EQ(formatted(PVStringCreateWithFormat("%*.*f|%d", 8, 3, 3.14159, 7)), "   3.142|7");
  EXPECT_EQ(formatted(PVStringCreateWithFormat("%Lf|%.1f", 1.5L, 2.5)), "1.500000|2.5");
}

TEST(StringFormat, EachIntegerLengthTakesItsOwnArgumentWidth) {
  // A 64-bit argument read as an int leaves every later one misplaced, on
  // 32-bit processors: the %s after it would print from a wrong address.
  EXPECT_EQ(formatted(PVStringCreateWithFormat("%Ld|%s|%qd|%s|%jd|%s|%hhd|%hd|%zd|%s", 5000000000LL,
                                               "a", -5000000000LL, "b", intmax_t{7}, "c", 1, 2,
                                               ssize_t{3}, "d")),
            "5000000000|a|-5000000000|b|7|c|1|2|3|d");
  // %m prints errno's text and takes no argument.
  errno = ENOENT;
  EXPECT_EQ(formatted(PVStringCreateWithFormat("%m|%s", "e")), "No such file or directory|e");
}

TEST(StringFormat, ValueConversionPrintsDescriptions) {
  auto name = tw::test::text("VPN \u00e9");
  auto number = pv::Ref<PVNumberRef>::adopt(PVNumberCreateWithInt64(42));
  auto data = tw::test::bytes("\xAB\x01");
  auto list = tw::test::array({name.get(), number.get()});
  auto dict = tw::test::dict({{name.get(), list.get()}});

  EXPECT_EQ(formatted(PVStringCreateWithFormat("%s: This service(%@) exists, replacing it", "fn",
                                               name.get())),
            "fn: This service(VPN \u00e9) exists, replacing it");
  EXPECT_EQ(formatted(PVStringCreateWithFormat("%@ %d %@ %@ %@", number.get(), 1, kPVBooleanTrue,
                                               data.get(), static_cast<PVTypeRef>(nullptr))),
            "42 1 true <ab01> (null)");
  EXPECT_EQ(formatted(PVStringCreateWithFormat("%@", dict.get())),
            "{VPN \u00e9 = (VPN \u00e9, 42)}");
}

TEST(StringFormat, MalformedFormatsAndInvalidTextGiveNull) {
  EXPECT_EQ(PVStringCreateWithFormat(nullptr), nullptr);
  EXPECT_EQ(PVStringCreateWithFormat("trailing %"), nullptr);
  EXPECT_EQ(PVStringCreateWithFormat("%s", "\xC3"), nullptr);
}

}  // namespace
