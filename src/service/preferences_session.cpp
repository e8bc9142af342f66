// The caller's preferences session: lock with one synchronize-and-retry,
// unlock, and commit before apply, each failure logged with the platform's
// error text.
#include "service/internal.hpp"
#include "tarnwick/platform/log.h"

namespace {

void logLastError(const char *format) {
  SysLogWrite(kSysLogLevelError, format, ZNErrorString(ZNError()));
}

}  // namespace

extern "C" {

Boolean JXVPNPreferencesLock(ZNPreferencesRef prefs) noexcept {
  if (ZNPreferencesLock(prefs, true)) return true;
  // A session older than the store cannot lock until it has re-read it.
  (void)ZNPreferencesSynchronize(prefs);  // the second attempt tells whether it helped
  if (ZNPreferencesLock(prefs, true)) return true;
  logLastError("Failed to lock ZNPreferences %s");
  return false;
}

Boolean JXVPNPreferencesUnlock(ZNPreferencesRef prefs) noexcept {
  return ZNPreferencesUnlock(prefs);
}

Boolean JXVPNPreferencesCommitAndApply(ZNPreferencesRef prefs) noexcept {
  if (!ZNPreferencesCommitChanges(prefs)) {
    logLastError("Failed to commit ZNPreferences %s");
    return false;
  }
  if (!ZNPreferencesApplyChanges(prefs)) {
    logLastError("Failed to apply ZNPreferences %s");
    return false;
  }
  return true;
}

}  // extern "C"
