// Items in the Coffer's database: find, insert, update and delete.
#pragma once

#include <string>
#include <vector>

#include "platform/coffer/database.hpp"
#include "platform/coffer/item.hpp"

namespace vlt {

// Every statement that searches the items for `query` (find, update,
// remove), so that a test can hold each one's plan to an index.
[[nodiscard]] std::vector<std::string> searches(const Query &query);

// Each throws sql::Error when the database fails; the statuses below are
// what the items themselves make of a call.

// The first item the query matches, in the order items were stored;
// kVltErrorItemNotFound when none does.
[[nodiscard]] VltStatus findFirst(sql::Database &db, const Query &query, Item &item);
// Every item the query matches, in the order items were stored.
[[nodiscard]] std::vector<Item> findAll(sql::Database &db, const Query &query);
// Stores the item with a new persistent reference (written into the item);
// a duplicate of a stored item fails with SQLITE_CONSTRAINT_UNIQUE.
void insert(sql::Database &db, Item &item);
// Applies the changes to every matching item, all or none;
// kVltErrorItemNotFound when none matches.
[[nodiscard]] VltStatus update(sql::Database &db, const Query &query, const Changes &changes);
// Deletes every matching item; kVltErrorItemNotFound when none matches.
[[nodiscard]] VltStatus remove(sql::Database &db, const Query &query);

}  // namespace vlt
