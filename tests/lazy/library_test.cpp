// The shared library's libraries opened on first use.
#include "lazy/library.hpp"

#include <gtest/gtest.h>

#include <cstring>

namespace {

TEST(LazyLibrary, FindsAFunctionAndGivesNullForWhatIsNotThere) {
  lazy::Library c("libc.so.6");
  auto length = reinterpret_cast<decltype(&std::strlen)>(c.symbol("strlen"));
  ASSERT_NE(length, nullptr);
  EXPECT_EQ(length("opened"), 6u);
  EXPECT_EQ(c.symbol("tarnwick_no_such_function"), nullptr);

  // A library that cannot be opened gives null every time, and tries once.
  lazy::Library absent("libtarnwick-absent.so.0");
  EXPECT_EQ(absent.symbol("strlen"), nullptr);
  EXPECT_EQ(absent.symbol("strlen"), nullptr);
}

}  // namespace
