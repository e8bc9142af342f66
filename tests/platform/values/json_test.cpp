#include "platform/values/json.hpp"

#include <gtest/gtest.h>

#include <cmath>

#include "platform/prefs/support.hpp"

namespace {

using nlohmann::json;
using tw::test::dict;
using tw::test::Ref;
using tw::test::text;

Ref<PVTypeRef> fromJson(const json &value, std::string *error = nullptr) {
  std::string reason;
  auto out = Ref<PVTypeRef>::adopt(pv::json::createFromJson(value, reason));
  if (error) *error = reason;
  return out;
}

TEST(PvJson, EveryKindRoundTripsKeepingIntegersAndDoublesApart) {
  const json document = json::parse(R"({
    "text": "grüße", "int": -7, "big": 9007199254740993, "double": 1.0, "fraction": 0.25,
    "yes": true, "no": false, "bytes": {"$data": "AAEC/w=="}, "empty": {"$data": ""},
    "list": [1, "two", [3.5], {}], "nested": {"a": {"b": []}}})");
  auto value = fromJson(document);
  ASSERT_TRUE(value);
  auto dictionary = static_cast<PVDictionaryRef>(value.get());

  auto number = [&](const char *key) {
    return static_cast<PVNumberRef>(PVDictionaryGetValue(dictionary, text(key).get()));
  };
  EXPECT_FALSE(PVNumberIsFloatType(number("int")));
  EXPECT_FALSE(PVNumberIsFloatType(number("big")));
  EXPECT_TRUE(PVNumberIsFloatType(number("double")));
  int64_t big = 0;
  PVNumberGetValue(number("big"), kPVNumberSInt64Type, &big);
  EXPECT_EQ(big, 9007199254740993);
  EXPECT_EQ(PVDictionaryGetValue(dictionary, text("yes").get()), kPVBooleanTrue);
  EXPECT_EQ(PVDictionaryGetValue(dictionary, text("no").get()), kPVBooleanFalse);
  const uint8_t expected[] = {0, 1, 2, 255};
  auto bytes = Ref<PVDataRef>::adopt(PVDataCreate(expected, 4));
  EXPECT_TRUE(PVEqual(PVDictionaryGetValue(dictionary, text("bytes").get()), bytes.get()));

  json back;
  std::string error;
  ASSERT_TRUE(pv::json::toJson(value.get(), back, error)) << error;
  EXPECT_EQ(back, document);
  EXPECT_EQ(back.dump(), document.dump());  // 1.0 stays "1.0", not "1"
}

TEST(PvJson, ValuesWithoutJsonFormAreReportedNotThrown) {
  std::string error;
  json out;
  auto set = Ref<PVSetRef>::adopt(PVSetCreate(nullptr, 0, &kPVTypeSetCallBacks));
  EXPECT_FALSE(pv::json::toJson(dict({{"s", set.get()}}).get(), out, error));
  EXPECT_NE(error.find("set"), std::string::npos);

  auto one = Ref<PVNumberRef>::adopt(PVNumberCreateWithInt64(1));
  EXPECT_FALSE(pv::json::toJson(dict({{one.get(), one.get()}}).get(), out, error));

  auto infinity = Ref<PVNumberRef>::adopt(PVNumberCreateWithDouble(INFINITY));
  EXPECT_FALSE(pv::json::toJson(infinity.get(), out, error));

  // A dictionary that would read back as data.
  EXPECT_FALSE(pv::json::toJson(dict({{"$data", "AAAA"}}).get(), out, error));
}

TEST(PvJson, JsonWithoutPropertyValueFormIsReportedNotThrown) {
  for (const char *bad :
       {R"(null)", R"([1, null])", R"(18446744073709551615)", R"({"$data": "AAE"})",
        R"({"$data": "AA=A"})", R"({"$data": "AB=="})", R"({"$data": 12})"}) {
    std::string error;
    EXPECT_FALSE(fromJson(json::parse(bad), &error)) << bad;
    EXPECT_FALSE(error.empty()) << bad;
  }
  json deep = json::array();
  for (int i = 0; i < 1000; ++i) deep = json::array({deep});
  EXPECT_FALSE(fromJson(deep));
  // "$data" beside other keys is an ordinary dictionary.
  auto plain = fromJson(json::parse(R"({"$data": "AA==", "x": 1})"));
  ASSERT_TRUE(plain);
  EXPECT_EQ(PVGetTypeID(plain.get()), PVDictionaryGetTypeID());
}

// Keys from a caller's strings are those very objects, at every depth; a key
// it refuses fails the whole conversion.
TEST(PvJson, DictionaryKeysComeFromTheCallersStringsWhenGiven) {
  auto shared = text("key");
  int asked = 0;
  pv::json::KeyStrings keys = [&](std::string_view key) -> PVStringRef {
    ++asked;
    return key == "key" ? shared.get() : nullptr;
  };
  std::string error;
  auto value = Ref<PVTypeRef>::adopt(
      pv::json::createFromJson(json::parse(R"({"key": [{"key": 1}]})"), error, keys));
  ASSERT_TRUE(value);
  EXPECT_EQ(asked, 2);
  auto outer = static_cast<PVDictionaryRef>(value.get());
  const void *outerKey = nullptr;
  PVDictionaryGetKeysAndValues(outer, &outerKey, nullptr);
  EXPECT_EQ(outerKey, shared.get());
  auto list = static_cast<PVArrayRef>(PVDictionaryGetValue(outer, shared.get()));
  auto inner = static_cast<PVDictionaryRef>(PVArrayGetValueAtIndex(list, 0));
  const void *innerKey = nullptr;
  PVDictionaryGetKeysAndValues(inner, &innerKey, nullptr);
  EXPECT_EQ(innerKey, shared.get());

  EXPECT_FALSE(pv::json::createFromJson(json::parse(R"({"other": 1})"), error, keys));
  EXPECT_FALSE(error.empty());
}

TEST(PvJson, PublicTextFormIsCompactSortedAndRefusesWhatHasNone) {
  auto value = fromJson(json::parse(R"({"b": [1, 2.5], "a": {"$data": "AAE="}, "c": "x"})"));
  auto text = Ref<PVStringRef>::adopt(PVCreateJSONString(value.get()));
  EXPECT_EQ(tw::test::textOf(text.get()), R"({"a":{"$data":"AAE="},"b":[1,2.5],"c":"x"})");
  auto set = Ref<PVSetRef>::adopt(PVSetCreate(nullptr, 0, &kPVTypeSetCallBacks));
  EXPECT_EQ(PVCreateJSONString(dict({{"set", set.get()}}).get()), nullptr);
  EXPECT_EQ(PVCreateJSONString(nullptr), nullptr);
}

}  // namespace
