/*
 * Property values: the platform's reference-counted strings, data, numbers,
 * booleans, arrays, dictionaries and sets.
 *
 * Conventions
 *  1. A function whose name holds Create or Copy returns a value the caller
 *     releases with PVRelease. A function whose name holds Get returns a value
 *     borrowed from its owner, valid while the owner lives and is unchanged.
 *  2. Collections retain what they hold (sets built with NULL call-backs are
 *     the one exception: they compare by identity and retain nothing).
 *  3. Equality is by value; two values of different kinds are never equal.
 *     PVHash is consistent with PVEqual.
 *  4. Constant strings (the platform's and the library's key constants) and
 *     the two booleans are immortal: retain and release leave them alone.
 *  5. Reference counts are atomic; a value may be released from any thread,
 *     but a mutable value must not be changed from two threads at once.
 *  6. Every function tolerates NULL where it makes sense and then returns
 *     NULL, 0 or false.
 */
#ifndef TARNWICK_PLATFORM_VALUES_H
#define TARNWICK_PLATFORM_VALUES_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define TW_EXTERN_C_BEGIN extern "C" {
#define TW_EXTERN_C_END }
#define TW_NOEXCEPT noexcept
#else
#define TW_EXTERN_C_BEGIN
#define TW_EXTERN_C_END
#define TW_NOEXCEPT
#endif

#define TW_EXPORT __attribute__((visibility("default")))

TW_EXTERN_C_BEGIN

typedef unsigned char Boolean;
typedef long PVIndex;
typedef unsigned long PVTypeID;
typedef unsigned long PVHashCode;

typedef const void *PVTypeRef;
typedef const void *PVAllocatorRef; /* only the default allocator exists */
#define kPVAllocatorDefault ((PVAllocatorRef)0)

typedef const struct PVString *PVStringRef;
typedef struct PVString *PVMutableStringRef;
typedef const struct PVData *PVDataRef;
typedef struct PVData *PVMutableDataRef;
typedef const struct PVNumber *PVNumberRef;
typedef const struct PVBoolean *PVBooleanRef;
typedef const struct PVArray *PVArrayRef;
typedef struct PVArray *PVMutableArrayRef;
typedef const struct PVDictionary *PVDictionaryRef;
typedef struct PVDictionary *PVMutableDictionaryRef;
typedef const struct PVSet *PVSetRef;
typedef struct PVSet *PVMutableSetRef;

/* ---- every value -------------------------------------------------------- */

/* Ownership: returns its argument, with one more reference. */
TW_EXPORT PVTypeRef PVRetain(PVTypeRef value) TW_NOEXCEPT;
/* Drops one reference; the last one frees the value. NULL is ignored. */
TW_EXPORT void PVRelease(PVTypeRef value) TW_NOEXCEPT;
/* The current count; immortal values report a very large count. */
TW_EXPORT PVIndex PVGetRetainCount(PVTypeRef value) TW_NOEXCEPT;
TW_EXPORT PVTypeID PVGetTypeID(PVTypeRef value) TW_NOEXCEPT;
TW_EXPORT Boolean PVEqual(PVTypeRef a, PVTypeRef b) TW_NOEXCEPT;
TW_EXPORT PVHashCode PVHash(PVTypeRef value) TW_NOEXCEPT;
/* A compact text: a string's bare text, other values in a short notation.
 * Ownership: copy. */
TW_EXPORT PVStringRef PVCopyDescription(PVTypeRef value) TW_NOEXCEPT;

TW_EXPORT PVTypeID PVStringGetTypeID(void) TW_NOEXCEPT;
TW_EXPORT PVTypeID PVDataGetTypeID(void) TW_NOEXCEPT;
TW_EXPORT PVTypeID PVNumberGetTypeID(void) TW_NOEXCEPT;
TW_EXPORT PVTypeID PVBooleanGetTypeID(void) TW_NOEXCEPT;
TW_EXPORT PVTypeID PVArrayGetTypeID(void) TW_NOEXCEPT;
TW_EXPORT PVTypeID PVDictionaryGetTypeID(void) TW_NOEXCEPT;
TW_EXPORT PVTypeID PVSetGetTypeID(void) TW_NOEXCEPT;

/* ---- strings ------------------------------------------------------------ */

typedef enum PVStringEncoding {
  kPVStringEncodingUTF8 = 1,
  kPVStringEncodingUTF16 = 2, /* host byte order, no byte-order mark */
  kPVStringEncodingUTF16LE = 3,
  kPVStringEncodingUTF16BE = 4
} PVStringEncoding;

/* NULL when the text is not valid UTF-8. Ownership: create. */
TW_EXPORT PVStringRef PVStringCreateWithCString(const char *utf8) TW_NOEXCEPT;
/* A new string that is never freed, on `length` bytes of UTF-8 text in
 * static storage; retain and release leave it alone. What the constant
 * string macros of tarnwick/platform/constant_string.hpp define. NULL when
 * the text is not valid UTF-8. Ownership: none (immortal). */
TW_EXPORT PVStringRef PVStringCreateConstant(const char *text, PVIndex length) TW_NOEXCEPT;
/* NULL when the bytes are not valid in the encoding; a UTF-16 byte count
 * that is odd drops its last byte. Ownership: create. */
TW_EXPORT PVStringRef PVStringCreateWithBytes(const uint8_t *bytes, PVIndex count,
                                              PVStringEncoding encoding) TW_NOEXCEPT;
/* From UTF-16 code units. NULL for unpaired surrogates. Ownership: create. */
TW_EXPORT PVStringRef PVStringCreateWithCharacters(const uint16_t *chars,
                                                   PVIndex count) TW_NOEXCEPT;
/* printf-style, with %@ for a property value's description. Not marked as
 * a printf format: the compiler would reject every %@. Ownership: create. */
TW_EXPORT PVStringRef PVStringCreateWithFormat(const char *format, ...) TW_NOEXCEPT;
TW_EXPORT PVStringRef PVStringCreateWithFormatAndArguments(const char *format,
                                                           va_list args) TW_NOEXCEPT;
/* Ownership: create. */
TW_EXPORT PVStringRef PVStringCreateCopy(PVStringRef string) TW_NOEXCEPT;
/* Length in UTF-16 code units. */
TW_EXPORT PVIndex PVStringGetLength(PVStringRef string) TW_NOEXCEPT;
/* Copies `count` UTF-16 code units from `start` into `buffer`. */
TW_EXPORT void PVStringGetCharacters(PVStringRef string, PVIndex start, PVIndex count,
                                     uint16_t *buffer) TW_NOEXCEPT;
/* The NUL-terminated UTF-8 text, borrowed from the string. */
TW_EXPORT const char *PVStringGetCStringPtr(PVStringRef string) TW_NOEXCEPT;
/* Byte count of the UTF-8 text, without the terminator. */
TW_EXPORT PVIndex PVStringGetUTF8Length(PVStringRef string) TW_NOEXCEPT;
/* The text encoded, without byte-order mark or terminator.
 * Ownership: create. */
TW_EXPORT PVDataRef PVStringCreateExternalRepresentation(PVStringRef string,
                                                         PVStringEncoding encoding) TW_NOEXCEPT;
/* Ownership: create. */
TW_EXPORT PVMutableStringRef PVStringCreateMutable(void) TW_NOEXCEPT;
TW_EXPORT void PVStringAppend(PVMutableStringRef string, PVStringRef appended) TW_NOEXCEPT;
TW_EXPORT void PVStringAppendCString(PVMutableStringRef string, const char *utf8) TW_NOEXCEPT;

/* ---- data --------------------------------------------------------------- */

/* Ownership: create. */
TW_EXPORT PVDataRef PVDataCreate(const uint8_t *bytes, PVIndex length) TW_NOEXCEPT;
/* A mutable data value of length 0. With capacity > 0 its storage is
 * reserved up front and stays put: the byte pointer may be written up to
 * `capacity` bytes, and the length changes only through SetLength/Append.
 * Ownership: create. */
TW_EXPORT PVMutableDataRef PVDataCreateMutable(PVIndex capacity) TW_NOEXCEPT;
TW_EXPORT PVMutableDataRef PVDataCreateMutableCopy(PVDataRef data) TW_NOEXCEPT;
TW_EXPORT PVIndex PVDataGetLength(PVDataRef data) TW_NOEXCEPT;
TW_EXPORT const uint8_t *PVDataGetBytePtr(PVDataRef data) TW_NOEXCEPT;
TW_EXPORT uint8_t *PVDataGetMutableBytePtr(PVMutableDataRef data) TW_NOEXCEPT;
/* Fails silently beyond a fixed capacity. */
TW_EXPORT void PVDataSetLength(PVMutableDataRef data, PVIndex length) TW_NOEXCEPT;
TW_EXPORT void PVDataAppendBytes(PVMutableDataRef data, const uint8_t *bytes,
                                 PVIndex length) TW_NOEXCEPT;

/* ---- numbers and booleans ----------------------------------------------- */

typedef enum PVNumberType {
  kPVNumberSInt8Type = 1,
  kPVNumberSInt16Type = 2,
  kPVNumberSInt32Type = 3,
  kPVNumberSInt64Type = 4,
  kPVNumberFloat64Type = 6,
  kPVNumberIntType = 9,
  kPVNumberLongType = 10
} PVNumberType;

/* Ownership: create. */
TW_EXPORT PVNumberRef PVNumberCreate(PVNumberType type, const void *value) TW_NOEXCEPT;
TW_EXPORT PVNumberRef PVNumberCreateWithInt64(int64_t value) TW_NOEXCEPT;
TW_EXPORT PVNumberRef PVNumberCreateWithDouble(double value) TW_NOEXCEPT;
/* Converts to `type` (integers truncate to the type's width, as a cast
 * does); false when the stored value is not exactly representable. */
TW_EXPORT Boolean PVNumberGetValue(PVNumberRef number, PVNumberType type,
                                   void *value) TW_NOEXCEPT;
TW_EXPORT Boolean PVNumberIsFloatType(PVNumberRef number) TW_NOEXCEPT;

TW_EXPORT extern const PVBooleanRef kPVBooleanTrue;
TW_EXPORT extern const PVBooleanRef kPVBooleanFalse;
TW_EXPORT Boolean PVBooleanGetValue(PVBooleanRef boolean) TW_NOEXCEPT;

/* ---- arrays ------------------------------------------------------------- */

/* Ownership: create. */
TW_EXPORT PVArrayRef PVArrayCreate(const PVTypeRef *values, PVIndex count) TW_NOEXCEPT;
TW_EXPORT PVMutableArrayRef PVArrayCreateMutable(void) TW_NOEXCEPT;
TW_EXPORT PVMutableArrayRef PVArrayCreateMutableCopy(PVArrayRef array) TW_NOEXCEPT;
TW_EXPORT PVIndex PVArrayGetCount(PVArrayRef array) TW_NOEXCEPT;
/* Ownership: get (borrowed from the array). */
TW_EXPORT PVTypeRef PVArrayGetValueAtIndex(PVArrayRef array, PVIndex index) TW_NOEXCEPT;
TW_EXPORT Boolean PVArrayContainsValue(PVArrayRef array, PVTypeRef value) TW_NOEXCEPT;
TW_EXPORT void PVArrayAppendValue(PVMutableArrayRef array, PVTypeRef value) TW_NOEXCEPT;
TW_EXPORT void PVArrayRemoveValueAtIndex(PVMutableArrayRef array, PVIndex index) TW_NOEXCEPT;

/* ---- dictionaries ------------------------------------------------------- */

/* Keys and values are retained and compared by value. Ownership: create. */
TW_EXPORT PVDictionaryRef PVDictionaryCreate(const PVTypeRef *keys, const PVTypeRef *values,
                                             PVIndex count) TW_NOEXCEPT;
TW_EXPORT PVDictionaryRef PVDictionaryCreateCopy(PVDictionaryRef dictionary) TW_NOEXCEPT;
TW_EXPORT PVMutableDictionaryRef PVDictionaryCreateMutable(void) TW_NOEXCEPT;
TW_EXPORT PVMutableDictionaryRef PVDictionaryCreateMutableCopy(PVDictionaryRef dictionary) TW_NOEXCEPT;
TW_EXPORT PVIndex PVDictionaryGetCount(PVDictionaryRef dictionary) TW_NOEXCEPT;
/* Ownership: get (borrowed from the dictionary). */
TW_EXPORT PVTypeRef PVDictionaryGetValue(PVDictionaryRef dictionary, PVTypeRef key) TW_NOEXCEPT;
TW_EXPORT Boolean PVDictionaryContainsKey(PVDictionaryRef dictionary, PVTypeRef key) TW_NOEXCEPT;
/* Fills the two arrays (each may be NULL) with borrowed keys and values,
 * in the same unspecified order. */
TW_EXPORT void PVDictionaryGetKeysAndValues(PVDictionaryRef dictionary, PVTypeRef *keys,
                                            PVTypeRef *values) TW_NOEXCEPT;
typedef void (*PVDictionaryApplierFunction)(PVTypeRef key, PVTypeRef value, void *context);
TW_EXPORT void PVDictionaryApplyFunction(PVDictionaryRef dictionary,
                                         PVDictionaryApplierFunction applier,
                                         void *context) TW_NOEXCEPT;
/* Adds or replaces. A NULL key or value is refused (nothing changes). */
TW_EXPORT void PVDictionarySetValue(PVMutableDictionaryRef dictionary, PVTypeRef key,
                                    PVTypeRef value) TW_NOEXCEPT;
TW_EXPORT void PVDictionaryRemoveValue(PVMutableDictionaryRef dictionary, PVTypeRef key) TW_NOEXCEPT;

/* ---- sets --------------------------------------------------------------- */

/* Call-backs of a set: NULL compares members by identity and retains
 * nothing; &kPVTypeSetCallBacks compares by value and retains. */
typedef struct PVSetCallBacks {
  int version;
} PVSetCallBacks;
TW_EXPORT extern const PVSetCallBacks kPVTypeSetCallBacks;

/* Ownership: create. */
TW_EXPORT PVSetRef PVSetCreate(const PVTypeRef *values, PVIndex count,
                               const PVSetCallBacks *callBacks) TW_NOEXCEPT;
TW_EXPORT PVMutableSetRef PVSetCreateMutable(const PVSetCallBacks *callBacks) TW_NOEXCEPT;
TW_EXPORT PVIndex PVSetGetCount(PVSetRef set) TW_NOEXCEPT;
TW_EXPORT Boolean PVSetContainsValue(PVSetRef set, PVTypeRef value) TW_NOEXCEPT;
TW_EXPORT void PVSetAddValue(PVMutableSetRef set, PVTypeRef value) TW_NOEXCEPT;

TW_EXTERN_C_END

#endif /* TARNWICK_PLATFORM_VALUES_H */
