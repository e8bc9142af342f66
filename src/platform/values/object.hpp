// The object model behind property values and every platform handle.
//
// Invariants:
//  1. Every value starts with a PVObject: its kind and its reference count.
//  2. An immortal object (constant strings, the two booleans, the IPv4
//     interface) has kImmortal as its count; retain and release never touch
//     it, so it can live in read-only-initialised static storage.
//  3. Retain is a relaxed increment; release is a release-decrement followed
//     by an acquire fence before the object is destroyed, so every write made
//     through another reference happens-before the destructor.
//  4. Immutable values never change after creation; only the Mutable kinds
//     are changed, and only by their owner's thread.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "tarnwick/platform/values.h"

namespace pv {

enum class Kind : PVTypeID {
  String = 1,
  Data,
  Number,
  Boolean,
  Array,
  Dictionary,
  Set,
  // Platform handles: compared by identity.
  Preferences,
  NetworkSet,
  NetworkService,
  NetworkInterface,
  NetworkProtocol,
  NetworkConnection,
  Certificate,
  Identity,
  Trust,
  SecretAgent,
};

inline constexpr int32_t kImmortal = INT32_MIN / 2;

struct PVObject {
  constexpr PVObject(Kind k, bool immortal) : kind(k), refs(immortal ? kImmortal : 1) {}
  virtual ~PVObject() = default;
  PVObject(const PVObject &) = delete;
  PVObject &operator=(const PVObject &) = delete;

  // Value equality with an object of the same kind; identity by default.
  virtual bool equals(const PVObject &other) const { return this == &other; }
  virtual size_t hash() const { return std::hash<const void *>{}(this); }
  // Appends the compact description used for %@.
  virtual void describe(std::string &out) const;

  bool immortal() const { return refs.load(std::memory_order_relaxed) <= kImmortal / 2; }
  void retain() const {
    if (!immortal()) refs.fetch_add(1, std::memory_order_relaxed);
  }
  void release() const {
    if (immortal()) return;
    if (refs.fetch_sub(1, std::memory_order_release) == 1) {
#if defined(__SANITIZE_THREAD__)
      // ThreadSanitizer models no fence: an acquire load of the count is
      // the same ordering in a form it sees.
      (void)refs.load(std::memory_order_acquire);
#else
      std::atomic_thread_fence(std::memory_order_acquire);
#endif
      delete this;
    }
  }

  const Kind kind;
  mutable std::atomic<int32_t> refs;
};

inline const PVObject *object(PVTypeRef value) { return static_cast<const PVObject *>(value); }

// Counts UTF-16 code units of valid UTF-8 text; usable at compile time for
// constant strings.
constexpr size_t utf16Length(std::string_view utf8) {
  size_t units = 0;
  for (size_t i = 0; i < utf8.size();) {
    unsigned char c = static_cast<unsigned char>(utf8[i]);
    size_t width = c < 0x80 ? 1 : c < 0xE0 ? 2 : c < 0xF0 ? 3 : 4;
    units += width == 4 ? 2 : 1;
    i += width;
  }
  return units;
}

}  // namespace pv

// Strings keep their text as NUL-terminated UTF-8 and cache their UTF-16
// length and their hash. A constant string points at its literal; any other
// immutable string keeps its text right behind itself, one allocation for
// both (make); a mutable string owns a std::string (PVMutableString).
struct PVString : pv::PVObject {
  constexpr PVString(const char *literal, size_t size)
      : PVObject(pv::Kind::String, true),
        text_(literal),
        size_(size),
        utf16Count(pv::utf16Length(std::string_view(literal, size))),
        isMutable(false) {}
  // A new immutable string holding a copy of `text`, which must be valid
  // UTF-8; throws std::bad_alloc.
  static PVString *make(std::string_view text);

  std::string_view text() const { return {text_, size_}; }
  const char *cString() const { return text_; }
  bool equals(const PVObject &other) const override;
  size_t hash() const override;
  void describe(std::string &out) const override { out.append(text()); }

  // Every string not made at compile time was allocated as raw memory (its
  // text behind it) or by a plain new: freed the one way that suits both.
  static void operator delete(void *memory) { ::operator delete(memory); }

 protected:
  PVString(const char *text, size_t size, bool isMutable)
      : PVObject(pv::Kind::String, false),
        text_(text),
        size_(size),
        utf16Count(pv::utf16Length(std::string_view(text, size))),
        isMutable(isMutable) {}

  const char *text_;  // NUL-terminated
  size_t size_;

 public:
  size_t utf16Count;
  const bool isMutable;
  mutable std::atomic<size_t> cachedHash{0};
};

struct PVMutableString final : PVString {
  PVMutableString() : PVString("", 0, true) {}
  void assign(std::string text);

  std::string owned;
};

// Defines an immortal constant string declared (and exported) in a public
// header: one object per constant, so identity tells two constants of equal
// text apart.
#define PV_DEFINE_CONSTANT_STRING(name, literal)                         \
  static constinit PVString name##_object{literal, sizeof(literal) - 1}; \
  extern "C" {                                                           \
  const PVStringRef name = &name##_object;                               \
  }

// A file-local immortal constant string, for use in an unnamed namespace.
#define PV_DEFINE_LOCAL_CONSTANT_STRING(name, literal)            \
  constinit PVString name##_object{literal, sizeof(literal) - 1}; \
  const PVStringRef name = &name##_object;

// The same for a pointer variable that the library never assigns.
#define PV_DEFINE_CONSTANT_STRING_VARIABLE(name, literal)                \
  static constinit PVString name##_object{literal, sizeof(literal) - 1}; \
  extern "C" {                                                           \
  PVStringRef name = &name##_object;                                     \
  }
