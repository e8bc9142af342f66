// Reference counts of property values: what each kind of creation hands
// over, what collections keep, what immortal values ignore, and what the
// C++ holder does with each of them.
#include <gtest/gtest.h>

#include <climits>
#include <thread>
#include <vector>

#include "tarnwick/platform/prefs.h"
#include "tarnwick/platform/ref.hpp"
#include "tarnwick/platform/values.h"

namespace {

PVIndex count(PVTypeRef value) { return PVGetRetainCount(value); }

TEST(ValueOwnership, EveryCreatorHandsOverExactlyOneReference) {
  const uint8_t bytes[] = {1, 2};
  PVStringRef text = PVStringCreateWithCString("x");
  const PVTypeRef values[] = {text};
  const PVTypeRef created[] = {
      PVStringCreateWithFormat("%d", 1),
      PVStringCreateMutable(),
      PVCopyDescription(kPVBooleanTrue),
      PVDataCreate(bytes, 2),
      PVDataCreateMutable(0),
      PVDataCreateMutable(8),
      PVNumberCreateWithInt64(1),
      PVNumberCreateWithDouble(1.5),
      PVArrayCreate(values, 1),
      PVArrayCreateMutable(),
      PVDictionaryCreate(values, values, 1),
      PVDictionaryCreateMutable(),
      PVSetCreate(values, 1, &kPVTypeSetCallBacks),
      PVSetCreateMutable(nullptr),
  };
  for (PVTypeRef value : created) {
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(count(value), 1) << PVGetTypeID(value);
  }
  // The array, the set, and the dictionary as key and as value.
  EXPECT_EQ(count(text), 5);
  for (PVTypeRef value : created) PVRelease(value);
  EXPECT_EQ(count(text), 1);
  PVRelease(text);
}

TEST(ValueOwnership, ImmortalValuesIgnoreRetainAndRelease) {
  const PVTypeRef immortals[] = {kPVBooleanTrue, kPVBooleanFalse, kZNEntNetIPv4};
  for (PVTypeRef value : immortals) {
    EXPECT_EQ(count(value), LONG_MAX);
    for (int i = 0; i < 1000; ++i) PVRetain(value);
    for (int i = 0; i < 5000; ++i) PVRelease(value);
    EXPECT_EQ(count(value), LONG_MAX);
  }
  EXPECT_TRUE(PVBooleanGetValue(kPVBooleanTrue));
  EXPECT_STREQ(PVStringGetCStringPtr(kZNEntNetIPv4), "IPv4");
  // A collection that retains and releases an immortal leaves it alone too.
  PVArrayRef array = PVArrayCreate(immortals, 3);
  PVRelease(array);
  EXPECT_EQ(count(kPVBooleanFalse), LONG_MAX);
}

TEST(ValueOwnership, ArrayRetainsMembersAndReleasesThemOnRemovalAndDestruction) {
  PVStringRef a = PVStringCreateWithCString("a");
  PVStringRef b = PVStringCreateWithCString("b");
  const PVTypeRef values[] = {a, b, a};
  PVArrayRef array = PVArrayCreate(values, 3);
  EXPECT_EQ(count(a), 3);
  EXPECT_EQ(count(b), 2);

  PVMutableArrayRef copy = PVArrayCreateMutableCopy(array);
  EXPECT_EQ(count(a), 5);
  PVArrayRemoveValueAtIndex(copy, 0);
  EXPECT_EQ(count(a), 4);
  PVArrayRemoveValueAtIndex(copy, 5);  // out of range: nothing released
  EXPECT_EQ(PVArrayGetCount(copy), 2);
  PVArrayAppendValue(copy, b);
  EXPECT_EQ(count(b), 4);
  PVRelease(copy);
  EXPECT_EQ(count(a), 3);
  EXPECT_EQ(count(b), 2);
  PVRelease(array);
  EXPECT_EQ(count(a), 1);
  EXPECT_EQ(count(b), 1);
  PVRelease(a);
  PVRelease(b);
}

TEST(ValueOwnership, DictionaryRetainsKeysAndValuesAcrossReplacementRemovalAndCopies) {
  PVStringRef key = PVStringCreateWithCString("k");
  PVStringRef equalKey = PVStringCreateWithCString("k");
  PVNumberRef first = PVNumberCreateWithInt64(1);
  PVNumberRef second = PVNumberCreateWithInt64(2);
  PVMutableDictionaryRef dict = PVDictionaryCreateMutable();

  PVDictionarySetValue(dict, key, first);
  EXPECT_EQ(count(key), 2);
  EXPECT_EQ(count(first), 2);
  PVDictionarySetValue(dict, key, first);  // same value again: no change
  EXPECT_EQ(count(first), 2);
  // Replacing through an equal key keeps the original key object.
  PVDictionarySetValue(dict, equalKey, second);
  EXPECT_EQ(count(key), 2);
  EXPECT_EQ(count(equalKey), 1);
  EXPECT_EQ(count(first), 1);
  EXPECT_EQ(count(second), 2);
  PVDictionarySetValue(dict, key, nullptr);  // refused
  EXPECT_EQ(PVDictionaryGetValue(dict, key), second);

  PVDictionaryRef frozen = PVDictionaryCreateCopy(dict);
  PVMutableDictionaryRef mutableCopy = PVDictionaryCreateMutableCopy(frozen);
  EXPECT_EQ(count(second), 4);
  // Copying an immutable dictionary shares it.
  PVDictionaryRef again = PVDictionaryCreateCopy(frozen);
  EXPECT_EQ(again, frozen);
  EXPECT_EQ(count(frozen), 2);
  PVRelease(again);
  PVRelease(frozen);
  PVRelease(mutableCopy);
  EXPECT_EQ(count(second), 2);

  PVDictionaryRemoveValue(dict, equalKey);
  EXPECT_EQ(count(key), 1);
  EXPECT_EQ(count(second), 1);
  PVDictionarySetValue(dict, key, first);
  PVRelease(dict);
  EXPECT_EQ(count(key), 1);
  EXPECT_EQ(count(first), 1);
  for (PVTypeRef v : {PVTypeRef(key), PVTypeRef(equalKey), PVTypeRef(first), PVTypeRef(second)}) {
    PVRelease(v);
  }
}

TEST(ValueOwnership, ValueSetRetainsOnceAndIdentitySetNever) {
  PVStringRef a = PVStringCreateWithCString("a");
  PVStringRef equalA = PVStringCreateWithCString("a");
  const PVTypeRef values[] = {a, equalA, a};

  PVSetRef byValue = PVSetCreate(values, 3, &kPVTypeSetCallBacks);
  EXPECT_EQ(count(a), 2);
  EXPECT_EQ(count(equalA), 1);  // a duplicate is neither added nor retained
  PVSetRef byIdentity = PVSetCreate(values, 3, nullptr);
  PVMutableSetRef mutableIdentity = PVSetCreateMutable(nullptr);
  PVSetAddValue(mutableIdentity, a);
  EXPECT_EQ(count(a), 2);
  EXPECT_EQ(count(equalA), 1);

  PVRelease(byIdentity);
  PVRelease(mutableIdentity);
  EXPECT_EQ(count(a), 2);  // an identity set releases nothing either
  PVRelease(byValue);
  EXPECT_EQ(count(a), 1);
  PVRelease(a);
  PVRelease(equalA);
}

TEST(ValueOwnership, StringCopyOfImmutableSharesItAndOfMutableSnapshotsIt) {
  PVStringRef text = PVStringCreateWithCString("same");
  PVStringRef copy = PVStringCreateCopy(text);
  EXPECT_EQ(copy, text);
  EXPECT_EQ(count(text), 2);
  PVRelease(copy);

  PVMutableStringRef growing = PVStringCreateMutable();
  PVStringAppend(growing, text);
  PVStringRef snapshot = PVStringCreateCopy(growing);
  EXPECT_NE(snapshot, growing);
  PVStringAppendCString(growing, "!");
  EXPECT_STREQ(PVStringGetCStringPtr(snapshot), "same");
  EXPECT_STREQ(PVStringGetCStringPtr(growing), "same!");
  PVRelease(snapshot);
  PVRelease(growing);
  PVRelease(text);
}

TEST(RefHolder, AdoptTakesOverRetainAddsDestructionAndReleaseGiveBack) {
  PVStringRef text = PVStringCreateWithCString("held");
  PVRetain(text);  // our own reference, to watch the count
  {
    auto adopted = pv::Ref<PVStringRef>::adopt(text);
    EXPECT_EQ(count(text), 2);
    auto retained = pv::Ref<PVStringRef>::retain(text);
    EXPECT_EQ(retained.get(), text);
    EXPECT_EQ(count(text), 3);
  }
  EXPECT_EQ(count(text), 1);
  EXPECT_EQ(PVRetain(text), text);
  PVRelease(text);
  PVRelease(text);

  EXPECT_FALSE(pv::Ref<PVStringRef>::retain(nullptr));
  PVRelease(nullptr);  // ignored
  EXPECT_EQ(PVRetain(nullptr), nullptr);
  EXPECT_EQ(count(nullptr), 0);

  auto holder = pv::Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutable());
  PVMutableDictionaryRef handedOver = holder.release();
  EXPECT_FALSE(holder);
  EXPECT_EQ(count(handedOver), 1);
  PVRelease(handedOver);
}

TEST(RefHolder, CopyRetainsMoveTransfersAssignmentReleasesTheOldValue) {
  PVNumberRef one = PVNumberCreateWithInt64(1);
  PVNumberRef two = PVNumberCreateWithInt64(2);
  PVRetain(one);
  PVRetain(two);
  {
    auto a = pv::Ref<PVNumberRef>::adopt(one);
    auto b = a;
    EXPECT_EQ(count(one), 3);
    auto c = std::move(b);
    EXPECT_FALSE(b);  // a moved-from holder is empty
    EXPECT_EQ(count(one), 3);

    auto d = pv::Ref<PVNumberRef>::adopt(two);
    d = a;
    EXPECT_EQ(count(two), 1);
    EXPECT_EQ(count(one), 4);
    d = d;  // self-assignment keeps the reference
    EXPECT_EQ(count(one), 4);
    d = pv::Ref<PVNumberRef>();
    EXPECT_EQ(count(one), 3);
  }
  EXPECT_EQ(count(one), 1);
  PVRelease(one);
  PVRelease(two);
}

TEST(ValueOwnershipThreads, ConcurrentRetainsAndReleasesEndWhereTheyBegan) {
  PVStringRef shared = PVStringCreateWithCString("shared");
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([shared] {
      for (int i = 0; i < 50000; ++i) PVRelease(PVRetain(shared));
    });
  }
  for (auto &thread : threads) thread.join();
  EXPECT_EQ(count(shared), 1);
  PVRelease(shared);
}

TEST(ValueOwnershipThreads, LastReleaseFromManyThreadsDestroysExactlyOnce) {
  PVStringRef probe = PVStringCreateWithCString("probe");
  for (int round = 0; round < 50; ++round) {
    const PVTypeRef values[] = {probe};
    PVArrayRef array = PVArrayCreate(values, 1);
    constexpr int kThreads = 6;
    for (int i = 1; i < kThreads; ++i) PVRetain(array);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) threads.emplace_back([array] { PVRelease(array); });
    for (auto &thread : threads) thread.join();
    // The array's destructor ran once: it gave back its one reference.
    ASSERT_EQ(count(probe), 1);
  }
  PVRelease(probe);
}

}  // namespace
