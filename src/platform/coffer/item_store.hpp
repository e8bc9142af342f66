// Items in the Coffer's database: find, insert, update and delete.
#pragma once

#include "platform/coffer/database.hpp"
#include "platform/coffer/item.hpp"

namespace vlt {

// The first item the query matches, in the order items were stored;
// kVltErrorItemNotFound when none does.
VltStatus findFirst(Database &db, const Query &query, Item &item);
// Stores the item with a new persistent reference (written into the item);
// kVltErrorDuplicateItem when an item of the same key is stored.
VltStatus insert(Database &db, Item &item);
// Applies the changes to every matching item, all or none.
VltStatus update(Database &db, const Query &query, const Changes &changes);
// Deletes every matching item.
VltStatus remove(Database &db, const Query &query);

}  // namespace vlt
