// The connection registry's files in a store directory (connections.cpp),
// for whatever else must know them.
#pragma once

namespace zn {

inline constexpr char kRegistryName[] = "connections.json";
// flock'ed around every read-modify-write of the registry.
inline constexpr char kRegistryLockName[] = "connections.lock";

}  // namespace zn
