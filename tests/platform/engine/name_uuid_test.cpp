#include "platform/engine/name_uuid.hpp"

#include <gtest/gtest.h>

namespace engine {
namespace {

TEST(NameUuid, IsTheVersion5UuidOfTheServiceInTarnwicksNamespace) {
  // Computed apart from this code (RFC 4122 section 4.3, namespace
  // 5b3c8e1f-472d-4a90-b60e-7d21c953f418): a change here would orphan every
  // connection already made.
  EXPECT_EQ(nameUuid("67c9dc4a-78c1-481b-b97c-949e10ca8b12"),
            "cc060f6e-9598-553f-afde-1da7137e82a1");
  EXPECT_NE(nameUuid("67c9dc4a-78c1-481b-b97c-949e10ca8b13"),
            nameUuid("67c9dc4a-78c1-481b-b97c-949e10ca8b12"));
}

}  // namespace
}  // namespace engine
