/*
 * The VPN engine: what brings the store's VPN services up. On Linux it is
 * NetworkManager with its VPN plugins.
 *
 * Every apply (ZNPreferencesApplyChanges) brings the engine in line with
 * the committed store: each VPN service that a plugin can express becomes
 * one NetworkManager connection of type vpn (persistent, autoconnect off,
 * named after the service), the connection of a service that is gone is
 * deleted, and a service that no plugin can express is left out with a
 * reason. Tarnwick's connections carry a name-based UUID of the service
 * identifier; no other connection is ever touched. Secrets stay in the
 * Coffer: every secret of a connection is agent-owned, so NetworkManager
 * never stores one. tarnwick(1) lists the mapping.
 *
 * The engine is NetworkManager when $TARNWICK_ENGINE is "networkmanager",
 * or when it is unset and NetworkManager answers on the system bus
 * ($DBUS_SYSTEM_BUS_ADDRESS when set); "none" otherwise. An engine that is
 * absent, slow or failing never fails an apply and loses nothing: the store
 * is the source of truth, and the next apply brings the engine in line.
 *
 * Reports are dictionaries with these keys (absent when empty):
 *   "Engine"           string: "networkmanager" or "none"
 *   "Failure"          string: why the engine is not (fully) in line
 *   "Added", "Updated", "Unchanged", "Failed", "Deleted"
 *                      numbers: connections added, updated, left as they
 *                      were, refused by the engine; deleted (applies only)
 *   "InLine", "OutOfDate", "CannotExpress"
 *                      numbers: services in each state
 *   "Leftover"         number: connections of Tarnwick's that the next
 *                      apply deletes (status only)
 *   "DeletedServices"  array: the identifiers whose connections went
 *                      (applies only)
 *   "Services"         array, one dictionary per VPN service (an apply
 *                      without an engine maps none and lists none):
 *       "ServiceID", "Name", "Type" ("L2TP", "PPTP", "IPSec", "VPN"),
 *       "VendorType", "Plugin" ("l2tp", "pptp", "vpnc" or a vendor
 *       plugin's service type), "UUID" (its connection's), "State"
 *       ("in-line", "out-of-date", "cannot-express", "no-engine"),
 *       "Action" ("added", "updated", "unchanged", "failed", "none"; applies
 *       only), and
 *       "Reason" (why it cannot be expressed, or what the engine said)
 *   "Generation", "AppliedGeneration"
 *                      numbers: the store's, and the one last applied
 *                      (status only)
 */
#ifndef TARNWICK_PLATFORM_ENGINE_H
#define TARNWICK_PLATFORM_ENGINE_H

#include "tarnwick/platform/prefs.h"

TW_EXTERN_C_BEGIN

/* The engine an apply would use now: "networkmanager" or "none". Reaches
 * the system bus unless $TARNWICK_ENGINE says "none". Ownership: get
 * (static storage). */
TW_EXPORT const char *ZNEngineGetName(void) TW_NOEXCEPT;

/* Applies like ZNPreferencesApplyChanges, and checks every connection of
 * Tarnwick's against what the engine holds, so that connections edited or
 * deleted behind Tarnwick's back are put right. False only when the store
 * cannot be locked or read; what the engine did is in
 * ZNEngineCopyReport. */
TW_EXPORT Boolean ZNEngineApply(ZNPreferencesRef prefs) TW_NOEXCEPT;

/* What the calling thread's applies did with the engine since the report
 * was last taken, as one report: one change of the store may apply more
 * than once (a selection that changes applies by itself). The services'
 * states and "Failure" are the last apply's; each service's "Action" is the
 * strongest any apply took (failed, added, updated, unchanged), and the
 * deletions add up. The next report starts afresh. NULL when the thread
 * has not applied since. Ownership: create. */
TW_EXPORT PVDictionaryRef ZNEngineCopyReport(void) TW_NOEXCEPT;

/* How far the engine holds the committed store, service by service,
 * changing nothing. NULL when the store cannot be read.
 * Ownership: create. */
TW_EXPORT PVDictionaryRef ZNEngineCopyStatus(ZNPreferencesRef prefs) TW_NOEXCEPT;

TW_EXTERN_C_END

#endif /* TARNWICK_PLATFORM_ENGINE_H */
