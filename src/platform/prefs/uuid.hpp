// Random (version 4) UUIDs: the identifiers of sets and services.
#pragma once

#include <string>

namespace pv {

// Lower-case "xxxxxxxx-xxxx-4xxx-yxxx-xxxxxxxxxxxx" from the kernel's
// random source; empty when it cannot give random bytes.
std::string randomUuid();

}  // namespace pv
