// Random bytes from the kernel's random source, for identifiers and
// persistent references. Straight from getrandom(2): a process that needs
// no cryptography of its own never has to start a library for it.
#pragma once

#include <cstddef>

namespace platform {

// Fills `size` bytes; false when the kernel cannot give them.
[[nodiscard]] bool randomBytes(void *bytes, size_t size);

}  // namespace platform
