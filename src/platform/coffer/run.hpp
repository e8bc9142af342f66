// The Coffer's error funnel: each operation that answers with a status
// counts the call for the testing interface, then runs its body so that a
// database failure becomes its status and anything else (an allocation
// failure) a store error.
#pragma once

#include "platform/coffer/database.hpp"
#include "platform/guard/guarded.hpp"
#include "platform/testing/fault.hpp"

namespace vlt {

// The status a failure being handled stands for; called in a catch handler.
[[nodiscard]] VltStatus currentStatus() noexcept;

template <typename Body>
VltStatus run(const char *operation, pt::Family family, Body &&body) noexcept {
  if (pt::enter(operation, family)) return kVltErrorInjected;
  return platform::guarded(static_cast<Body &&>(body), [] { return currentStatus(); });
}

}  // namespace vlt
