// The process's one connection to the Coffer, kept between operations so
// that an operation costs no open.
//
// Guarantees
//  1. It is the connection to coffer.db of the current store directory: a
//     change of directory, or a file removed or replaced under it, opens
//     anew at the next operation.
//  2. It never crosses fork(): SQLite forbids using a connection in a child
//     (the child would share the parent's file locks' bookkeeping). A child
//     leaves the inherited one untouched, not even closed, and opens its
//     own. fork() waits while an operation is under way, so no child starts
//     with SQLite's lock state in the middle of a transaction.
//  3. The threads of a process take turns with it, one operation at a time.
//  4. It is closed at exit.
//  5. While a batch is open, every write joins the batch's transaction
//     (each as a savepoint, so that a write that fails undoes only itself)
//     and the connection stays on the Coffer the batch began on. A batch
//     that has not committed when the process ends is rolled back, by the
//     close at exit or, after a crash, by the journal. A child forked
//     during a batch cannot use the Coffer at all (guarantee 2's reason,
//     with a transaction always under way): every operation fails.
#pragma once

#include <functional>

#include "platform/coffer/database.hpp"

namespace vlt {

// Runs `operation` on the connection, opening it first when needed (which
// throws sql::Error when the Coffer cannot be opened).
[[nodiscard]] VltStatus withDatabase(const std::function<VltStatus(sql::Database &)> &operation);

// Opens the process's batch: kVltErrorParam when one is open already.
[[nodiscard]] VltStatus beginBatch();
// Commits the batch or rolls it back: kVltErrorParam when none is open,
// kVltErrorStore when it was lost. Either way the batch is over.
[[nodiscard]] VltStatus endBatch(bool commit);

}  // namespace vlt
