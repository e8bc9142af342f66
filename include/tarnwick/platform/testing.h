/*
 * The platform's testing interface. Not part of the library's interface and
 * not exported from the shared library: tests link the static library.
 *
 * Every public platform operation (ZN..., Vlt...) and a few named steps
 * inside them ("commit.write", "commit.fsync", "commit.rename") count their
 * calls by name and can be made to fail on their Nth call. The platform's
 * own internal work never goes through its public operations, so only the
 * calls a caller makes are counted. A getter made to fail returns NULL; a
 * ZN operation sets ZNError to kZNStatusInjected, a Vlt operation returns
 * kVltErrorInjected.
 */
#ifndef TARNWICK_PLATFORM_TESTING_H
#define TARNWICK_PLATFORM_TESTING_H

#include "tarnwick/platform/values.h"

TW_EXTERN_C_BEGIN

/* Clears every count and every planned failure. */
void PTReset(void) TW_NOEXCEPT;
/* The `nth` call (1 = the next one) of `operation` from now on fails, once. */
void PTFailNthCall(const char *operation, long nth) TW_NOEXCEPT;
/* Calls of `operation` since the last reset. */
long PTCallCount(const char *operation) TW_NOEXCEPT;
/* Calls of every Vlt operation that writes (add, update, delete). */
long PTCofferWriteCount(void) TW_NOEXCEPT;
/* Calls of every Vlt operation. */
long PTCofferCallCount(void) TW_NOEXCEPT;

TW_EXTERN_C_END

#endif /* TARNWICK_PLATFORM_TESTING_H */
