/*
 * The system log.
 *
 * Messages go to syslog(3). Formats are printf-style with %@ for a
 * property value's description (a string prints its bare text). Nothing
 * here fails visibly: a message that cannot be formatted or delivered is
 * dropped.
 */
#ifndef TARNWICK_PLATFORM_LOG_H
#define TARNWICK_PLATFORM_LOG_H

#include "tarnwick/platform/values.h"

TW_EXTERN_C_BEGIN

/* syslog's levels; the library writes its errors at kSysLogLevelError. */
enum { kSysLogLevelError = 3, kSysLogLevelWarning = 4, kSysLogLevelNotice = 5 };

/* Writes one message at `level`. */
TW_EXPORT void SysLogWrite(int level, const char *format, ...) TW_NOEXCEPT;
/* Writes one message without a level of its own: it goes at the log's
 * default level (notice). */
TW_EXPORT void SysLogWriteDefault(const char *format, ...) TW_NOEXCEPT;

TW_EXTERN_C_END

#endif /* TARNWICK_PLATFORM_LOG_H */
