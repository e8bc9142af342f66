#include "platform/random/random.hpp"

#include <sys/random.h>

#include <cerrno>

namespace platform {

bool randomBytes(void *bytes, size_t size) {
  auto *at = static_cast<unsigned char *>(bytes);
  while (size > 0) {
    // Blocks only until the kernel's pool is first seeded, at boot.
    ssize_t got = getrandom(at, size, 0);
    if (got < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    at += got;
    size -= static_cast<size_t>(got);
  }
  return true;
}

}  // namespace platform
