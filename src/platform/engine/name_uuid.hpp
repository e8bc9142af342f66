// Name-based (version 5) UUIDs: the stable identifier of the engine
// connection Tarnwick makes for a service, derived from the service's
// identifier alone, so that every process and every run agree on it.
#pragma once

#include <string>
#include <string_view>

namespace engine {

// Lower-case "xxxxxxxx-xxxx-5xxx-yxxx-xxxxxxxxxxxx": SHA-1 of Tarnwick's
// namespace UUID followed by `name`, as RFC 4122 section 4.3 lays out.
std::string nameUuid(std::string_view name);

}  // namespace engine
