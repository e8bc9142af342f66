// Data, numbers and booleans.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "tarnwick/platform/ref.hpp"
#include "tarnwick/platform/values.h"

namespace {

using Data = pv::Ref<PVDataRef>;
using MutableData = pv::Ref<PVMutableDataRef>;
using Number = pv::Ref<PVNumberRef>;

std::vector<uint8_t> bytes(PVDataRef data) {
  const uint8_t *p = PVDataGetBytePtr(data);
  return p ? std::vector<uint8_t>(p, p + PVDataGetLength(data)) : std::vector<uint8_t>();
}

TEST(DataValue, CreateCopiesTheCallersBytes) {
  uint8_t source[] = {1, 2, 3};
  auto data = Data::adopt(PVDataCreate(source, 3));
  source[0] = 9;
  EXPECT_EQ(bytes(data.get()), (std::vector<uint8_t>{1, 2, 3}));
  EXPECT_NE(PVDataGetBytePtr(data.get()), source);
  // An immutable value has no writable bytes, even through a cast.
  EXPECT_EQ(PVDataGetMutableBytePtr(const_cast<PVMutableDataRef>(data.get())), nullptr);
  PVDataAppendBytes(const_cast<PVMutableDataRef>(data.get()), source, 3);
  EXPECT_EQ(PVDataGetLength(data.get()), 3);

  EXPECT_EQ(PVDataCreate(source, -1), nullptr);
  EXPECT_EQ(PVDataCreate(nullptr, 1), nullptr);
  auto empty = Data::adopt(PVDataCreate(nullptr, 0));
  ASSERT_TRUE(empty);
  EXPECT_EQ(PVDataGetLength(empty.get()), 0);
}

TEST(DataValue, MutableDataGrowsByAppendAndSetLength) {
  const uint8_t abc[] = {'a', 'b', 'c'};
  auto data = MutableData::adopt(PVDataCreateMutable(0));
  PVDataAppendBytes(data.get(), abc, 3);
  PVDataAppendBytes(data.get(), abc, 1);
  EXPECT_EQ(bytes(data.get()), (std::vector<uint8_t>{'a', 'b', 'c', 'a'}));
  PVDataSetLength(data.get(), 2);
  PVDataSetLength(data.get(), 4);  // growth fills with zeros
  EXPECT_EQ(bytes(data.get()), (std::vector<uint8_t>{'a', 'b', 0, 0}));
  PVDataGetMutableBytePtr(data.get())[3] = 'z';
  EXPECT_EQ(bytes(data.get())[3], 'z');
  PVDataSetLength(data.get(), -1);  // refused
  EXPECT_EQ(PVDataGetLength(data.get()), 4);

  auto copy = MutableData::adopt(PVDataCreateMutableCopy(data.get()));
  PVDataAppendBytes(copy.get(), abc, 3);
  EXPECT_EQ(PVDataGetLength(data.get()), 4);
  EXPECT_EQ(PVDataGetLength(copy.get()), 7);
  EXPECT_EQ(PVDataCreateMutable(-1), nullptr);
}

TEST(DataValue, FixedCapacityStorageStaysPutAndLengthMovesOnlyWhenAsked) {
  auto data = MutableData::adopt(PVDataCreateMutable(4));
  uint8_t *storage = PVDataGetMutableBytePtr(data.get());
  ASSERT_NE(storage, nullptr);
  std::memcpy(storage, "\x61\x00\x62\x00", 4);
  // Writing through the pointer leaves the length alone, deliberately.
  EXPECT_EQ(PVDataGetLength(data.get()), 0);
  EXPECT_EQ(PVDataGetBytePtr(data.get()), storage);

  PVDataSetLength(data.get(), 5);  // beyond the capacity: refused
  EXPECT_EQ(PVDataGetLength(data.get()), 0);
  PVDataSetLength(data.get(), 2);
  EXPECT_EQ(bytes(data.get()), (std::vector<uint8_t>{0x61, 0x00}));
  const uint8_t more[] = {1, 2, 3};
  PVDataAppendBytes(data.get(), more, 3);  // would overflow: refused
  EXPECT_EQ(PVDataGetLength(data.get()), 2);
  PVDataAppendBytes(data.get(), more, 2);
  EXPECT_EQ(bytes(data.get()), (std::vector<uint8_t>{0x61, 0x00, 1, 2}));
  EXPECT_EQ(PVDataGetMutableBytePtr(data.get()), storage);
}

template <typename T>
std::pair<T, bool> get(PVNumberRef number, PVNumberType type) {
  T value{};
  bool exact = PVNumberGetValue(number, type, &value);
  return {value, exact};
}

TEST(NumberValue, IntegerConversionsTruncateLikeACastAndReportInexactness) {
  auto n256 = Number::adopt(PVNumberCreateWithInt64(256));
  EXPECT_EQ(get<int8_t>(n256.get(), kPVNumberSInt8Type), std::make_pair(int8_t{0}, false));
  EXPECT_EQ(get<int16_t>(n256.get(), kPVNumberSInt16Type), std::make_pair(int16_t{256}, true));
  auto minByte = Number::adopt(PVNumberCreateWithInt64(-128));
  EXPECT_EQ(get<int8_t>(minByte.get(), kPVNumberSInt8Type), std::make_pair(int8_t{-128}, true));
  auto big = Number::adopt(PVNumberCreateWithInt64(int64_t{1} << 31));
  EXPECT_EQ(get<int32_t>(big.get(), kPVNumberSInt32Type),
            std::make_pair(std::numeric_limits<int32_t>::min(), false));
  EXPECT_EQ(get<int>(big.get(), kPVNumberIntType).second, false);
  // A long is 64 bits on LP64 processors and 32 on 32-bit ones.
  constexpr bool wideLong = sizeof(long) > sizeof(int32_t);
  EXPECT_EQ(get<long>(big.get(), kPVNumberLongType),
            std::make_pair(static_cast<long>(int64_t{1} << 31), wideLong));
  EXPECT_EQ(get<double>(big.get(), kPVNumberFloat64Type), std::make_pair(2147483648.0, true));
  EXPECT_FALSE(PVNumberIsFloatType(big.get()));

  // Doubles cannot hold every 64-bit integer.
  auto odd = Number::adopt(PVNumberCreateWithInt64((int64_t{1} << 53) + 1));
  EXPECT_FALSE(get<double>(odd.get(), kPVNumberFloat64Type).second);
  auto max = Number::adopt(PVNumberCreateWithInt64(std::numeric_limits<int64_t>::max()));
  EXPECT_FALSE(get<double>(max.get(), kPVNumberFloat64Type).second);
}

TEST(NumberValue, DoublesConvertToIntegersOnlyExactlyWhenWhole) {
  auto whole = Number::adopt(PVNumberCreateWithDouble(-3.0));
  EXPECT_TRUE(PVNumberIsFloatType(whole.get()));
  EXPECT_EQ(get<int32_t>(whole.get(), kPVNumberSInt32Type), std::make_pair(-3, true));
  auto fraction = Number::adopt(PVNumberCreateWithDouble(2.75));
  EXPECT_EQ(get<int64_t>(fraction.get(), kPVNumberSInt64Type), std::make_pair(int64_t{2}, false));
  EXPECT_EQ(get<double>(fraction.get(), kPVNumberFloat64Type), std::make_pair(2.75, true));
  for (double odd : {std::nan(""), HUGE_VAL, 1e300, 0x1p63}) {
    auto n = Number::adopt(PVNumberCreateWithDouble(odd));
    EXPECT_FALSE(get<int64_t>(n.get(), kPVNumberSInt64Type).second) << odd;
  }
  auto edge = Number::adopt(PVNumberCreateWithDouble(-0x1p63));
  EXPECT_EQ(get<int64_t>(edge.get(), kPVNumberSInt64Type),
            std::make_pair(std::numeric_limits<int64_t>::min(), true));
}

TEST(NumberValue, CreateReadsEachTypeAndRefusesTheRest) {
  const int8_t s8 = -5;
  const int16_t s16 = -300;
  const int32_t s32 = 70000;
  const int64_t s64 = int64_t{1} << 40;
  const int i = -1;
  const long l = std::numeric_limits<long>::min();  // the full width, 32 or 64 bits
  const double d = 0.5;
  const std::pair<PVNumberType, const void *> inputs[] = {
      {kPVNumberSInt8Type, &s8},   {kPVNumberSInt16Type, &s16}, {kPVNumberSInt32Type, &s32},
      {kPVNumberSInt64Type, &s64}, {kPVNumberIntType, &i},      {kPVNumberLongType, &l}};
  const int64_t expected[] = {s8, s16, s32, s64, i, l};
  for (size_t k = 0; k < std::size(inputs); ++k) {
    auto n = Number::adopt(PVNumberCreate(inputs[k].first, inputs[k].second));
    EXPECT_EQ(get<int64_t>(n.get(), kPVNumberSInt64Type), std::make_pair(expected[k], true));
  }
  auto half = Number::adopt(PVNumberCreate(kPVNumberFloat64Type, &d));
  EXPECT_EQ(get<double>(half.get(), kPVNumberFloat64Type).first, 0.5);

  EXPECT_EQ(PVNumberCreate(static_cast<PVNumberType>(5), &s64), nullptr);
  EXPECT_EQ(PVNumberCreate(kPVNumberSInt64Type, nullptr), nullptr);
  int64_t untouched = 11;
  EXPECT_FALSE(PVNumberGetValue(half.get(), static_cast<PVNumberType>(5), &untouched));
  EXPECT_FALSE(PVNumberGetValue(nullptr, kPVNumberSInt64Type, &untouched));
  EXPECT_FALSE(PVNumberGetValue(reinterpret_cast<PVNumberRef>(kPVBooleanTrue), kPVNumberSInt64Type,
                                &untouched));
  EXPECT_EQ(untouched, 11);
}

TEST(BooleanValue, TheTwoSharedObjectsAndNothingElse) {
  EXPECT_TRUE(PVBooleanGetValue(kPVBooleanTrue));
  EXPECT_FALSE(PVBooleanGetValue(kPVBooleanFalse));
  EXPECT_EQ(PVGetTypeID(kPVBooleanTrue), PVBooleanGetTypeID());
  EXPECT_FALSE(PVEqual(kPVBooleanTrue, kPVBooleanFalse));
  auto one = Number::adopt(PVNumberCreateWithInt64(1));
  EXPECT_FALSE(PVBooleanGetValue(reinterpret_cast<PVBooleanRef>(one.get())));
  EXPECT_FALSE(PVBooleanGetValue(nullptr));
}

}  // namespace
