/*
 * Property values as JSON text, and data as base64: the one conversion the
 * platform's store and the command-line tool share.
 *
 *   dictionary  <->  object (string keys only)
 *   array       <->  array
 *   string      <->  string (one holding a NUL has no property value)
 *   integer     <->  integer; a floating number <-> a number with a
 *                    fraction or exponent: the two stay apart both ways
 *   boolean     <->  true / false (the shared kPVBooleanTrue / kPVBooleanFalse)
 *   data        <->  {"$data": "<base64>"}, strict base64
 *   data         <-  {"$file": "<path>"}, read by the caller's file reader
 *
 * Values nest at most 256 levels deep; an object with a key that appears
 * twice has no property value (the path names the key). Sets, platform handles, JSON null,
 * non-finite numbers and integers beyond 64 bits have no counterpart.
 */
#ifndef TARNWICK_PLATFORM_JSON_H
#define TARNWICK_PLATFORM_JSON_H

#include "tarnwick/platform/values.h"

TW_EXTERN_C_BEGIN

/* Why JSON text has no property value. A syntax error has its 1-based line
 * and column, and a NULL path (its reason never quotes the text); a value with no property value has line and
 * column 0 and the key path to it ("" at the top, "PPP.AuthName",
 * "list[2]"). The caller releases path and reason. */
typedef struct PVJSONError {
  PVIndex line;
  PVIndex column;
  PVStringRef path;
  PVStringRef reason;
} PVJSONError;

/* Reads the file a {"$file": path} object names: new data, or NULL with a
 * new string in *reason saying why. */
typedef PVDataRef (*PVJSONFileReader)(PVStringRef path, void *context, PVStringRef *reason);

/* The property value `length` bytes of JSON text stand for: new strings for
 * text and keys, the shared booleans. With no `readFile`, a {"$file": …}
 * object is an ordinary dictionary. NULL on failure, with `error` (when
 * given) filled in. Ownership: create. */
TW_EXPORT PVTypeRef PVCreateWithJSONText(const char *text, PVIndex length,
                                         PVJSONFileReader readFile, void *context,
                                         PVJSONError *error) TW_NOEXCEPT;

/* The value as compact JSON text: dictionaries with their keys in sorted
 * order. NULL for a value with no JSON form, or holding one (a dictionary
 * whose only key is "$data" included: it would read back as data).
 * Ownership: create. */
TW_EXPORT PVStringRef PVCreateJSONString(PVTypeRef value) TW_NOEXCEPT;

/* Data as base64 text. Ownership: create. */
TW_EXPORT PVStringRef PVStringCreateBase64WithData(PVDataRef data) TW_NOEXCEPT;
/* The data base64 text stands for; NULL unless it is padded to a multiple
 * of four, without whitespace and without stray bits. Ownership: create. */
TW_EXPORT PVDataRef PVDataCreateWithBase64String(PVStringRef text) TW_NOEXCEPT;

TW_EXTERN_C_END

#endif
