/*
 * Notifications: the process's own notification center and the
 * system-wide one.
 *
 * A notification is a name and nothing else: no object, no user
 * information.
 *
 * The system-wide center is D-Bus. A post is the signal
 *     interface org.tarnwick.Notifications, member Posted,
 *     object path /org/tarnwick/Notifications, one string argument: the name
 * on the system bus ($DBUS_SYSTEM_BUS_ADDRESS when set, else the standard
 * system bus socket). Any process can listen, e.g.
 *     dbus-monitor --system "type='signal',interface='org.tarnwick.Notifications'"
 * A post that cannot reach a bus is dropped silently, and a post never
 * blocks for long.
 */
#ifndef TARNWICK_PLATFORM_NOTIFY_H
#define TARNWICK_PLATFORM_NOTIFY_H

#include "tarnwick/platform/values.h"

TW_EXTERN_C_BEGIN

typedef void (*NCObserverCallBack)(PVStringRef name, void *context);

/* Calls `callback` with `context` for every in-process post of `name`
 * from now on, until removed. False when out of memory or an argument is
 * NULL. */
TW_EXPORT Boolean NCLocalCenterAddObserver(PVStringRef name, NCObserverCallBack callback,
                                           void *context) TW_NOEXCEPT;
/* Removes every registration of that name, call-back and context. */
TW_EXPORT void NCLocalCenterRemoveObserver(PVStringRef name, NCObserverCallBack callback,
                                           void *context) TW_NOEXCEPT;
/* Calls the observers of `name` on the calling thread, in the order they
 * were added, before it returns. */
TW_EXPORT void NCLocalCenterPost(PVStringRef name) TW_NOEXCEPT;

/* Posts `name` system-wide. D-Bus delivers every signal at once, so
 * `deliverImmediately` changes nothing; it is taken for callers that ask
 * for it. */
TW_EXPORT void NCSystemCenterPost(PVStringRef name, Boolean deliverImmediately) TW_NOEXCEPT;

TW_EXTERN_C_END

#endif /* TARNWICK_PLATFORM_NOTIFY_H */
