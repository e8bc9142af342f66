// What the sync remembers between applies, in the store directory
// (networkmanager.sync): which NetworkManager instance it last talked to,
// and for each service the digest of the settings it last sent and the
// connection's object path.
//
// It is only ever a shortcut: a missing, damaged or foreign file, or
// another NetworkManager instance, makes the next sync a thorough one that
// reads what NetworkManager holds. So it is replaced by a rename without
// syncing to disk: a crash leaves the old file, the new one, or nothing
// usable, and each of them is safe.
#pragma once

#include <string>
#include <unordered_map>

namespace engine {

inline constexpr char kMemoryName[] = "networkmanager.sync";

struct Remembered {
  std::string digest;  // of the settings last sent (ConnectionSettings::digest)
  std::string path;    // the connection's object path in that instance
};

struct SyncMemory {
  // "<bus address> <unique name>" of the NetworkManager the entries hold
  // for; empty when unknown.
  std::string instance;
  std::unordered_map<std::string, Remembered> services;  // by service identifier

  // An empty memory when the file is missing or not one of ours.
  static SyncMemory load(const std::string &directory);
  // False when it could not be written (the next sync is then thorough).
  bool save(const std::string &directory) const;
};

}  // namespace engine
