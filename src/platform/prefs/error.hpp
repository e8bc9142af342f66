// The preferences store's error funnel. Internal code throws zn::Failure
// with a status code (or sql::Error from the database); each public
// operation runs through zn::run, which counts the call for the testing
// interface and turns every failure, allocation failures included, into
// its failure result and ZNError.
#pragma once

#include <type_traits>

#include "platform/guard/guarded.hpp"
#include "platform/testing/fault.hpp"
#include "tarnwick/platform/prefs.h"

namespace zn {

struct Failure {
  int code;
};

[[noreturn]] inline void fail(int code) { throw Failure{code}; }
// What the store holds is not what a commit writes.
[[noreturn]] inline void corrupt() { fail(kZNStatusCorruptStore); }

// The calling thread's last error, as ZNError() reports it.
void setError(int code) noexcept;

// The status a failure being handled stands for; called in a catch handler.
[[nodiscard]] int currentStatus() noexcept;

// Runs the public operation `operation`: `failed` is its result when a test
// planned this call to fail or when `body` throws.
template <typename Body, typename R = std::invoke_result_t<Body>>
R run(const char *operation, std::type_identity_t<R> failed, Body &&body) noexcept {
  return platform::guarded(
      [&]() -> R {
        if (pt::enter(operation)) fail(kZNStatusInjected);
        return body();
      },
      [&] {
        setError(currentStatus());
        return failed;
      });
}

// The same for an operation without a result.
template <typename Body>
void run(const char *operation, Body &&body) noexcept {
  run(operation, false, [&] {
    body();
    return true;
  });
}

}  // namespace zn
