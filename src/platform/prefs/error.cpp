// ZNError: the thread's last failure, kept like errno.
#include "platform/prefs/error.hpp"

#include "platform/prefs/database.hpp"

namespace {

thread_local int lastError = kZNStatusOK;

}  // namespace

namespace zn {

void setError(int code) noexcept { lastError = code; }

int currentStatus() noexcept {
  try {
    throw;
  } catch (const Failure &failure) {
    return failure.code;
  } catch (const sql::Error &error) {
    return statusOf(error);
  } catch (...) {
    return kZNStatusFailed;
  }
}

}  // namespace zn

extern "C" {

int ZNError(void) noexcept { return lastError; }

const char *ZNErrorString(int code) noexcept {
  switch (code) {
    case kZNStatusOK:
      return "no error";
    case kZNStatusFailed:
      return "the operation failed";
    case kZNStatusInvalidArgument:
      return "an argument is missing or not valid";
    case kZNStatusNoSuchObject:
      return "the object is not (or no longer) in the preferences";
    case kZNStatusNoStore:
      return "the preferences store directory does not exist";
    case kZNStatusAccessDenied:
      return "the preferences store cannot be read or written";
    case kZNStatusCorruptStore:
      return "the preferences database is corrupt, not a preferences database, or of a newer "
             "version";
    case kZNStatusIOError:
      return "reading, writing, syncing or renaming a store file failed";
    case kZNStatusNoEngine:
      return "no VPN engine is on, or it does not answer";
    case kZNStatusEngineRefused:
      return "the VPN engine refused the request";
    case kZNStatusLockFailed:
      return "the preferences are locked by another session";
    case kZNStatusStale:
      return "the preferences changed since this session read them; synchronize first";
    case kZNStatusNotLocked:
      return "the preferences session does not hold the lock";
    case kZNStatusInjected:
      return "failure planned through the testing interface";
    default:
      return "unknown error";
  }
}

}  // extern "C"
