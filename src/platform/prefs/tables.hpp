// The store's database, preferences.db: its schema, how a store is made,
// how a session reads its snapshot and how a commit writes its changes.
//
//   store     one row: generation, generation last applied, current set
//   sets      one row per set: position, id, name, selected VPN service
//   services  one row per service: position, id, name, enabled, and the
//             body (interface chain and protocols, service_body.hpp)
//   members   one row per membership: position, set id, service id
//
// Positions are the rows' keys and their order; each identifier is unique
// and indexed.
#pragma once

#include <cstdint>
#include <string>

#include "platform/prefs/database.hpp"
#include "platform/prefs/files.hpp"
#include "platform/prefs/model.hpp"

namespace zn {

inline constexpr char kDatabaseName[] = "preferences.db";
inline constexpr char kLockName[] = "preferences.lock";

// The database of the store in `directory`. Only a directory without one
// gets a new store (generation 1, one set "Default", current), made under
// `lock` so that every process sees the same set identifiers, and put in
// place whole by a rename. A file that is not the store's database (not
// SQLite, another application's, a newer schema) fails with
// kZNStatusCorruptStore before SQLite opens it, so it is never written.
[[nodiscard]] Database openStore(const std::string &directory, LockFile &lock);

// The snapshot a session starts from, read in one transaction; throws
// kZNStatusCorruptStore when the rows do not hold together. Service bodies
// are decoded later, when first used.
[[nodiscard]] Document readSnapshot(Database &db);

// Writes what `document` changed since its snapshot, and `generation`, in
// the caller's write transaction.
void writeChanges(Database &db, const Document &document, int64_t generation);

// The generation of the store now, and the one last applied.
[[nodiscard]] int64_t storedGeneration(Database &db);
[[nodiscard]] int64_t appliedGeneration(Database &db);
// Records the store's generation as applied; false when it was already.
bool recordApplied(Database &db);

}  // namespace zn
