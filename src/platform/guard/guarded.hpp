// The one shape of the platform's error funnels. No exception may cross the
// C interface: a public operation runs its body inside `guarded`, and
// whatever the body throws becomes the operation's failure result through
// `failure`, which each layer supplies (a ZNError recorded, a VltStatus, a
// plain null). `failure` runs inside the handler, so a `throw;` in it reads
// the exception being handled.
#pragma once

#include <type_traits>

namespace platform {

template <typename Body, typename Failure>
auto guarded(Body &&body, Failure &&failure) noexcept -> std::invoke_result_t<Body> {
  try {
    return body();
  } catch (...) {
    return failure();
  }
}

// The funnel of the parts that report nothing but their result: a failure
// (only ever an allocation) gives null, false, zero or nothing.
template <typename Body>
auto guarded(Body &&body) noexcept -> std::invoke_result_t<Body> {
  using Result = std::invoke_result_t<Body>;
  return guarded(static_cast<Body &&>(body), [] { return Result(); });
}

}  // namespace platform
