/*
 * The platform's testing interface. Not part of the library's interface and
 * not exported from the shared library: tests link the static library.
 *
 * Every public platform operation (ZN..., Vlt...) and a few named steps
 * inside them ("commit.row", before each row a commit writes) count their
 * calls by name and can be made to fail on their Nth call. The platform's
 * own internal work never goes through its public operations, so only the
 * calls a caller makes are counted. A getter made to fail returns NULL; a
 * ZN operation sets ZNError to kZNStatusInjected, a Vlt operation returns
 * kVltErrorInjected.
 *
 * SQLite's changes to the store's and the Coffer's files count too, under
 * "storage.write", "storage.sync", "storage.truncate" and "storage.delete"
 * (all work, the platform's own included), and so does "storage.resync",
 * the journal synced again after a commit whose last sync failed; one made
 * to fail is an I/O error at that moment.
 *
 * Any of these calls can instead stop the process (SIGSTOP) when it is
 * reached, so that a test can kill it at that exact moment.
 *
 * A test can also capture every log message and every notification posted,
 * in order, from the moment it starts the capture until the next reset.
 */
#ifndef TARNWICK_PLATFORM_TESTING_H
#define TARNWICK_PLATFORM_TESTING_H

#include "tarnwick/platform/values.h"

TW_EXTERN_C_BEGIN

/* Clears every count and every planned failure. */
void PTReset(void) TW_NOEXCEPT;
/* The `nth` call (1 = the next one) of `operation` from now on fails, once. */
void PTFailNthCall(const char *operation, long nth) TW_NOEXCEPT;
/* The `nth` call of `operation` from now on stops the process before it
 * does anything, once; continued, it goes on. */
void PTStopAtNthCall(const char *operation, long nth) TW_NOEXCEPT;
/* Calls of `operation` since the last reset. */
long PTCallCount(const char *operation) TW_NOEXCEPT;
/* Calls of every Vlt operation that writes (add, update, delete). */
long PTCofferWriteCount(void) TW_NOEXCEPT;
/* Calls of every Vlt operation. */
long PTCofferCallCount(void) TW_NOEXCEPT;

/* Starts (afresh) capturing log messages and notifications; PTReset stops
 * and clears the capture. */
void PTCaptureStart(void) TW_NOEXCEPT;

/* The level given to the log message without a level. */
enum { kPTNoLevel = -1 };
long PTLogMessageCount(void) TW_NOEXCEPT;
/* The level of the message at `index` (kPTNoLevel for none), -2 when out of range. */
int PTLogMessageLevel(long index) TW_NOEXCEPT;
/* The formatted text, or NULL when out of range. Ownership: get (valid
 * until the next reset or start). */
const char *PTLogMessageText(long index) TW_NOEXCEPT;

long PTNotificationCount(void) TW_NOEXCEPT;
/* The name posted at `index`, or NULL. Ownership: get (as above). */
const char *PTNotificationName(long index) TW_NOEXCEPT;
/* True when that post went to the system-wide center. */
Boolean PTNotificationIsSystemWide(long index) TW_NOEXCEPT;

TW_EXTERN_C_END

#endif /* TARNWICK_PLATFORM_TESTING_H */
