// Built into the shared library only. libcrypto and libsystemd are opened
// when a process first calls into them, not when it starts: most tarnwick
// commands never handle a certificate, and an apply without an engine never
// reaches a bus, yet loading both libraries and the six that libsystemd
// pulls in took longer than a whole durable SQLite insert. The static
// library links them directly.
//
// Each function the platform calls is defined here under its own name and
// forwards to the real one; when the library cannot be opened it fails the
// way the real function reports a failure.
#pragma once

#include <dlfcn.h>

#include <mutex>

namespace lazy {

class Library {
 public:
  // Constant-initialised, so that it is ready before any static
  // initialiser of the process could call into the library.
  constexpr explicit Library(const char *soname) : soname_(soname) {}

  // The address of `name`, opening the library on first use; null when
  // either cannot be found.
  void *symbol(const char *name) noexcept {
    std::call_once(opened_, [this] { handle_ = dlopen(soname_, RTLD_NOW | RTLD_LOCAL); });
    return handle_ ? dlsym(handle_, name) : nullptr;
  }

 private:
  const char *soname_;
  std::once_flag opened_;
  void *handle_ = nullptr;  // kept for the life of the process
};

}  // namespace lazy

// Defines `name` to call the function of that name in `library`, looked up
// once; `failed` is what it returns when there is none.
#define TW_LAZY(library, ret, name, params, args, failed)                               \
  extern "C" ret name params {                                                          \
    static const auto real = reinterpret_cast<decltype(&name)>(library.symbol(#name)); \
    if (!real) return failed;                                                           \
    return real args;                                                                   \
  }
