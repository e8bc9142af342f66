// Equality, hashing and description of every kind, and the behaviour of
// arrays, dictionaries and sets built on them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "tarnwick/platform/prefs.h"
#include "tarnwick/platform/ref.hpp"
#include "tarnwick/platform/values.h"

namespace {

using Any = pv::Ref<PVTypeRef>;

Any str(const char *text) { return Any::adopt(PVStringCreateWithCString(text)); }
Any integer(int64_t v) { return Any::adopt(PVNumberCreateWithInt64(v)); }
Any real(double v) { return Any::adopt(PVNumberCreateWithDouble(v)); }
Any data(std::vector<uint8_t> b) {
  return Any::adopt(PVDataCreate(b.data(), static_cast<PVIndex>(b.size())));
}
Any array(std::vector<PVTypeRef> v) {
  return Any::adopt(PVArrayCreate(v.data(), static_cast<PVIndex>(v.size())));
}
Any dict(std::vector<PVTypeRef> k, std::vector<PVTypeRef> v) {
  return Any::adopt(PVDictionaryCreate(k.data(), v.data(), static_cast<PVIndex>(k.size())));
}
Any set(std::vector<PVTypeRef> v, const PVSetCallBacks *callBacks = &kPVTypeSetCallBacks) {
  return Any::adopt(PVSetCreate(v.data(), static_cast<PVIndex>(v.size()), callBacks));
}
Any mutableText(const char *text) {
  PVMutableStringRef s = PVStringCreateMutable();
  PVStringAppendCString(s, text);
  return Any::adopt(s);
}

std::string describe(PVTypeRef value) {
  auto d = pv::Ref<PVStringRef>::adopt(PVCopyDescription(value));
  return d ? PVStringGetCStringPtr(d.get()) : "<null>";
}

void expectEqualWithEqualHash(const Any &a, const Any &b) {
  ASSERT_TRUE(a && b);
  EXPECT_NE(a.get(), b.get());
  EXPECT_TRUE(PVEqual(a.get(), b.get())) << describe(a.get()) << " vs " << describe(b.get());
  EXPECT_TRUE(PVEqual(b.get(), a.get()));
  EXPECT_EQ(PVHash(a.get()), PVHash(b.get())) << describe(a.get());
}

void expectDifferent(const Any &a, const Any &b) {
  ASSERT_TRUE(a && b);
  EXPECT_FALSE(PVEqual(a.get(), b.get())) << describe(a.get()) << " vs " << describe(b.get());
  EXPECT_FALSE(PVEqual(b.get(), a.get()));
}

TEST(ValueEquality, ScalarsCompareByValueWithConsistentHashes) {
  expectEqualWithEqualHash(str("h\u00e9"), str("h\u00e9"));
  expectEqualWithEqualHash(data({1, 2}), data({1, 2}));
  expectEqualWithEqualHash(integer(1), real(1.0));
  expectEqualWithEqualHash(integer(-7), integer(-7));
  expectEqualWithEqualHash(real(0.0), real(-0.0));
  expectEqualWithEqualHash(integer(int64_t{1} << 53), real(0x1p53));
  expectDifferent(str("a"), str("A"));
  expectDifferent(data({1}), data({1, 0}));
  expectDifferent(integer(1), real(1.5));
  // No rounding on the way to double: these integers are not that double.
  expectDifferent(integer((int64_t{1} << 53) + 1), real(0x1p53));
  expectDifferent(integer(INT64_MAX), real(0x1p63));
}

TEST(ValueEquality, MutableAndImmutableStringsOfEqualTextHashAlike) {
  for (const char *text : {"", "a", "b", "key", "VPNType", "AuthName", "\u00e9t\u00e9", "x y z",
                           "0123456789", "RemoteAddress", "Proxies", "IPv4", "DNS", "PPP"}) {
    expectEqualWithEqualHash(str(text), mutableText(text));
  }
}

TEST(ValueEquality, DifferentKindsAreNeverEqual) {
  auto one = integer(1);
  auto empties = std::vector<Any>{array({}), dict({}, {}), set({}), data({}), str("")};
  for (size_t i = 0; i < empties.size(); ++i) {
    for (size_t j = i + 1; j < empties.size(); ++j) expectDifferent(empties[i], empties[j]);
  }
  expectDifferent(str("1"), one);
  expectDifferent(data({'a'}), str("a"));
  EXPECT_FALSE(PVEqual(kPVBooleanTrue, one.get()));
  EXPECT_FALSE(PVEqual(kPVBooleanTrue, nullptr));
}

TEST(ValueEquality, CollectionsCompareMembersByValue) {
  auto a = str("a"), b = str("b"), one = integer(1), oneReal = real(1.0);
  expectEqualWithEqualHash(array({a.get(), one.get()}), array({str("a").get(), oneReal.get()}));
  expectDifferent(array({a.get(), b.get()}), array({b.get(), a.get()}));
  expectDifferent(array({a.get()}), array({a.get(), a.get()}));
  // Dictionaries ignore the order in which entries were made.
  expectEqualWithEqualHash(dict({a.get(), b.get()}, {one.get(), kPVBooleanTrue}),
                           dict({b.get(), str("a").get()}, {kPVBooleanTrue, oneReal.get()}));
  expectDifferent(dict({a.get()}, {one.get()}), dict({a.get()}, {kPVBooleanTrue}));
  expectDifferent(dict({a.get()}, {one.get()}), dict({b.get()}, {one.get()}));
  expectEqualWithEqualHash(set({a.get(), b.get()}), set({str("b").get(), str("a").get()}));
  expectDifferent(set({a.get()}), set({b.get()}));
  // Nested values too.
  expectEqualWithEqualHash(array({dict({a.get()}, {set({one.get()}).get()}).get()}),
                           array({dict({str("a").get()}, {set({oneReal.get()}).get()}).get()}));
}

TEST(Array, IndexesContainsAndRefusesNullsAndImmutableChanges) {
  auto a = str("a"), b = str("b");
  std::vector<PVTypeRef> withNull = {a.get(), nullptr, b.get()};
  auto fixed = array(withNull);  // a NULL entry is skipped
  EXPECT_EQ(PVArrayGetCount(static_cast<PVArrayRef>(fixed.get())), 2);
  auto list = static_cast<PVArrayRef>(fixed.get());
  EXPECT_EQ(PVArrayGetValueAtIndex(list, 1), b.get());
  EXPECT_EQ(PVArrayGetValueAtIndex(list, 2), nullptr);
  EXPECT_EQ(PVArrayGetValueAtIndex(list, -1), nullptr);
  EXPECT_TRUE(PVArrayContainsValue(list, str("b").get()));
  EXPECT_FALSE(PVArrayContainsValue(list, str("c").get()));
  PVArrayAppendValue(const_cast<PVMutableArrayRef>(list), a.get());
  PVArrayRemoveValueAtIndex(const_cast<PVMutableArrayRef>(list), 0);
  EXPECT_EQ(PVArrayGetCount(list), 2);

  auto growing = pv::Ref<PVMutableArrayRef>::adopt(PVArrayCreateMutable());
  PVArrayAppendValue(growing.get(), nullptr);
  PVArrayAppendValue(growing.get(), b.get());
  EXPECT_EQ(PVArrayGetCount(growing.get()), 1);
  EXPECT_EQ(PVArrayCreate(nullptr, 1), nullptr);
  EXPECT_EQ(PVArrayGetCount(reinterpret_cast<PVArrayRef>(a.get())), 0);  // not an array
}

TEST(Dictionary, LooksUpByAnyEqualKey) {
  auto one = integer(1);
  auto d = pv::Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutable());
  PVDictionarySetValue(d.get(), kZNEntNetIPv4, one.get());
  PVDictionarySetValue(d.get(), one.get(), kPVBooleanTrue);
  EXPECT_EQ(PVDictionaryGetValue(d.get(), str("IPv4").get()), one.get());
  EXPECT_EQ(PVDictionaryGetValue(d.get(), mutableText("IPv4").get()), one.get());
  EXPECT_EQ(PVDictionaryGetValue(d.get(), kZNNetworkInterfaceTypeIPv4), one.get());
  EXPECT_EQ(PVDictionaryGetValue(d.get(), real(1.0).get()), kPVBooleanTrue);
  EXPECT_FALSE(PVDictionaryContainsKey(d.get(), str("1").get()));
  EXPECT_FALSE(PVDictionaryContainsKey(d.get(), nullptr));

  // A mutable string key is found by an immutable one of equal text.
  auto keyed = pv::Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutable());
  for (const char *text : {"a", "b", "c", "d", "e", "f", "g", "h"}) {
    PVDictionarySetValue(keyed.get(), mutableText(text).get(), one.get());
  }
  for (const char *text : {"a", "b", "c", "d", "e", "f", "g", "h"}) {
    EXPECT_TRUE(PVDictionaryContainsKey(keyed.get(), str(text).get())) << text;
  }
}

TEST(Dictionary, EnumerationGivesEveryEntryOnce) {
  auto a = str("a"), b = str("b"), one = integer(1), two = integer(2);
  auto d = dict({a.get(), b.get(), str("a").get()}, {one.get(), one.get(), two.get()});
  auto dictionary = static_cast<PVDictionaryRef>(d.get());
  ASSERT_EQ(PVDictionaryGetCount(dictionary), 2);  // the later "a" replaced the first
  EXPECT_EQ(PVDictionaryGetValue(dictionary, a.get()), two.get());

  PVTypeRef keys[2] = {}, values[2] = {};
  PVDictionaryGetKeysAndValues(dictionary, keys, values);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(PVDictionaryGetValue(dictionary, keys[i]), values[i]);
  EXPECT_FALSE(PVEqual(keys[0], keys[1]));
  PVDictionaryGetKeysAndValues(dictionary, nullptr, values);  // either may be NULL

  std::vector<std::pair<std::string, PVTypeRef>> seen;
  PVDictionaryApplyFunction(
      dictionary,
      [](PVTypeRef key, PVTypeRef value, void *context) {
        static_cast<decltype(seen) *>(context)->emplace_back(describe(key), value);
      },
      &seen);
  std::sort(seen.begin(), seen.end());
  EXPECT_EQ(seen, (decltype(seen){{"a", two.get()}, {"b", one.get()}}));
}

TEST(Set, WithoutCallBacksMembershipIsIdentity) {
  // Two constants of equal text are two objects, and a caller's string a third.
  auto made = str("IPv4");
  auto s = set({kZNEntNetIPv4, kZNEntNetIPv4, made.get()}, nullptr);
  auto members = static_cast<PVSetRef>(s.get());
  EXPECT_EQ(PVSetGetCount(members), 2);
  EXPECT_TRUE(PVSetContainsValue(members, kZNEntNetIPv4));
  EXPECT_TRUE(PVSetContainsValue(members, made.get()));
  EXPECT_FALSE(PVSetContainsValue(members, kZNNetworkInterfaceTypeIPv4));
  EXPECT_FALSE(PVSetContainsValue(members, str("IPv4").get()));
}

TEST(Set, WithValueCallBacksMembershipIsEquality) {
  auto grow = pv::Ref<PVMutableSetRef>::adopt(PVSetCreateMutable(&kPVTypeSetCallBacks));
  PVSetAddValue(grow.get(), kZNEntNetIPv4);
  PVSetAddValue(grow.get(), str("IPv4").get());
  PVSetAddValue(grow.get(), integer(2).get());
  PVSetAddValue(grow.get(), real(2.0).get());
  PVSetAddValue(grow.get(), nullptr);
  EXPECT_EQ(PVSetGetCount(grow.get()), 2);
  EXPECT_TRUE(PVSetContainsValue(grow.get(), kZNNetworkInterfaceTypeIPv4));
  EXPECT_TRUE(PVSetContainsValue(grow.get(), mutableText("IPv4").get()));
  EXPECT_FALSE(PVSetContainsValue(grow.get(), str("IPv6").get()));

  auto fixed = set({kZNEntNetIPv4});
  PVSetAddValue(const_cast<PVMutableSetRef>(static_cast<PVSetRef>(fixed.get())), kZNEntNetDNS);
  EXPECT_EQ(PVSetGetCount(static_cast<PVSetRef>(fixed.get())), 1);
}

TEST(ValueDescription, EveryKindHasACompactText) {
  auto a = str("a b"), one = integer(1);
  EXPECT_EQ(describe(a.get()), "a b");
  EXPECT_EQ(describe(mutableText("m").get()), "m");
  EXPECT_EQ(describe(one.get()), "1");
  EXPECT_EQ(describe(integer(-9000000000).get()), "-9000000000");
  EXPECT_EQ(describe(real(2.5).get()), "2.5");
  EXPECT_EQ(describe(kPVBooleanFalse), "false");
  EXPECT_EQ(describe(data({0x00, 0xfe}).get()), "<00fe>");
  EXPECT_EQ(describe(data({}).get()), "<>");
  EXPECT_EQ(describe(array({}).get()), "()");
  EXPECT_EQ(describe(array({a.get(), one.get()}).get()), "(a b, 1)");
  EXPECT_EQ(describe(set({one.get()}).get()), "{(1)}");
  EXPECT_EQ(describe(dict({}, {}).get()), "{}");
  // Keys in order of their text, so that a description is stable.
  EXPECT_EQ(
      describe(
          dict({str("z").get(), str("b").get()}, {array({one.get()}).get(), kPVBooleanTrue}).get()),
      "{b = true; z = (1)}");
  EXPECT_EQ(PVCopyDescription(nullptr), nullptr);
}

}  // namespace
