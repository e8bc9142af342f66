#include "platform/values/json.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "platform/prefs/support.hpp"
#include "tarnwick/platform/json.h"

namespace {

using nlohmann::json;
using tw::test::dict;
using tw::test::Ref;
using tw::test::text;

Ref<PVTypeRef> fromJson(const json &value, std::string *error = nullptr) {
  pv::json::Failure failure;
  auto out = Ref<PVTypeRef>::adopt(pv::json::createFromJson(value, failure));
  if (error) *error = failure.reason;
  return out;
}

// The public reader: the value, or the failure as "line:column: reason" for
// a syntax error and "path: reason" otherwise.
std::pair<Ref<PVTypeRef>, std::string> fromText(const std::string &text,
                                                PVJSONFileReader readFile = nullptr,
                                                void *context = nullptr) {
  PVJSONError error;
  auto value = Ref<PVTypeRef>::adopt(PVCreateWithJSONText(
      text.data(), static_cast<PVIndex>(text.size()), readFile, context, &error));
  std::string failure;
  if (error.reason) {
    failure = error.path ? tw::test::textOf(error.path) + ": "
                         : std::to_string(error.line) + ":" + std::to_string(error.column) + ": ";
    failure += tw::test::textOf(error.reason);
  }
  PVRelease(error.path);
  PVRelease(error.reason);
  return {std::move(value), failure};
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
  pv::json::Failure error;
  auto value = Ref<PVTypeRef>::adopt(
      pv::json::createFromJson(json::parse(R"({"key": [{"key": 1}]})"), error, {keys, {}}));
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

  pv::json::Failure failure;
  EXPECT_FALSE(pv::json::createFromJson(json::parse(R"({"other": 1})"), failure, {keys, {}}));
  EXPECT_EQ(failure.path, "other");
}

// Failures name where they are: a syntax error by line and column, a value
// by its key path; a string holding a NUL is refused, never cut short.
TEST(PvJson, TextReaderSaysWhereItFailed) {
  EXPECT_EQ(fromText("{\n  \"a\": 1,\n  \"b\": 2,}").second.rfind("3:10: syntax error", 0), 0u);
  EXPECT_EQ(fromText(R"({"PPP": {"list": [1, {"x": null}]}})").second,
            "PPP.list[1].x: null is not a property value");
  EXPECT_EQ(fromText(R"([{"$data": "AB=="}])").second, "[0]: \"$data\" is not valid base64");
  EXPECT_EQ(fromText(R"({"s": "a\u0000b"})").second, "s: text that is not UTF-8, or holds a NUL");
  EXPECT_TRUE(fromText("").second.rfind("1:1: ", 0) == 0);
  EXPECT_FALSE(PVCreateWithJSONText(nullptr, 0, nullptr, nullptr, nullptr));
}

// The parser keeps the last of two equal keys; the reader refuses them, and
// never quotes the text it read (a password may stand next to an error).
TEST(PvJson, TextReaderRefusesDuplicateKeysAndQuotesNoText) {
  EXPECT_EQ(fromText(R"({"PPP": {"AuthName": "a", "List": [{"x": 1}], "AuthName": "b"}})").second,
            "PPP.AuthName: the key appears more than once");
  EXPECT_EQ(fromText(R"({"a": [{"x": 1, "x": 2}]})").second, "a.x: the key appears more than once");
  EXPECT_TRUE(fromText(R"({"a": {"x": 1}, "b": {"x": 1}, "c": [{"x": 1}, {"x": 2}]})").first);
  EXPECT_EQ(fromText(R"({"n": 1e999})").second, ": a number beyond the range of a double");
  for (const char *bad : {R"({"p": hunter2-secret})", "{\"p\": \"hunter2-secret\n\"}",
                          R"({"p": "hunter2-secret\q"})"}) {
    std::string failure = fromText(bad).second;
    EXPECT_NE(failure, "");
    EXPECT_EQ(failure.find("hunter2"), std::string::npos) << failure;
  }
}

// {"$file": …} goes to the caller's reader, which may refuse with a reason;
// without a reader it is an ordinary dictionary.
TEST(PvJson, FileObjectsGoToTheCallersReader) {
  struct Reads {
    std::vector<std::string> paths;
  } reads;
  PVJSONFileReader reader = [](PVStringRef path, void *context, PVStringRef *reason) -> PVDataRef {
    std::string name = tw::test::textOf(path);
    static_cast<Reads *>(context)->paths.push_back(name);
    if (name == "good") return PVDataCreate(reinterpret_cast<const uint8_t *>("xy"), 2);
    *reason = PVStringCreateWithCString("no such file");
    return nullptr;
  };
  auto [value, failure] = fromText(R"({"a": {"$file": "good"}})", reader, &reads);
  ASSERT_TRUE(value) << failure;
  auto data = static_cast<PVDataRef>(
      PVDictionaryGetValue(static_cast<PVDictionaryRef>(value.get()), text("a").get()));
  ASSERT_EQ(PVGetTypeID(data), PVDataGetTypeID());
  EXPECT_EQ(PVDataGetLength(data), 2);
  EXPECT_EQ(fromText(R"({"a": {"$file": "bad"}})", reader, &reads).second, "a: no such file");
  EXPECT_EQ(reads.paths, (std::vector<std::string>{"good", "bad"}));
  auto plain = fromText(R"({"$file": "good"})").first;
  EXPECT_EQ(PVGetTypeID(plain.get()), PVDictionaryGetTypeID());
}

TEST(PvJson, Base64IsStrictBothWays) {
  const uint8_t bytes[] = {0, 1, 2, 255};
  for (PVIndex length = 0; length <= 4; ++length) {
    auto data = Ref<PVDataRef>::adopt(PVDataCreate(bytes, length));
    auto encoded = Ref<PVStringRef>::adopt(PVStringCreateBase64WithData(data.get()));
    auto decoded = Ref<PVDataRef>::adopt(PVDataCreateWithBase64String(encoded.get()));
    EXPECT_TRUE(PVEqual(decoded.get(), data.get())) << tw::test::textOf(encoded.get());
  }
  auto encoded = Ref<PVStringRef>::adopt(PVStringCreateBase64WithData(
      Ref<PVDataRef>::adopt(PVDataCreate(bytes, 4)).get()));
  EXPECT_EQ(tw::test::textOf(encoded.get()), "AAEC/w==");
  for (const char *bad : {"AAE", "AA=A", "AB==", "AAB=", "AA A", "A===", "@@@@"}) {
    EXPECT_FALSE(Ref<PVDataRef>::adopt(PVDataCreateWithBase64String(text(bad).get()))) << bad;
  }
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
