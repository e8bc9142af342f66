// Named fault points behind the testing interface (tarnwick/platform/testing.h).
//
// Every public platform operation calls pt::enter("OperationName") first and
// fails as its contract says when it returns true. Internal steps that a
// test wants to break ("commit.write", "commit.rename") call it too. The
// platform's own work never goes through its public operations, so counts
// reflect exactly what callers asked for.
#pragma once

namespace pt {

enum class Family { Preferences, Coffer, CofferWrite };

// Counts the call; true when a test planned this call to fail. The name
// must be a string of static storage (a literal or __func__).
[[nodiscard]] bool enter(const char *operation, Family family = Family::Preferences);

}  // namespace pt
