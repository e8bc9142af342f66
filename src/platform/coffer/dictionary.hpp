// Between the Coffer's dictionaries and its item model. A key the operation
// does not know, or a value of the wrong kind, is kVltErrorParam: a caller's
// typo must not silently widen a query or drop an attribute.
#pragma once

#include "platform/coffer/item.hpp"

namespace vlt {

// Class, string attributes, accessibility, kVltValueRef, kVltValuePersistentRef;
// with `allowReturns`, also the three kVltReturn... flags.
[[nodiscard]] VltStatus parseQuery(PVDictionaryRef dictionary, bool allowReturns, Query &query);
// A generic password (class, attributes, kVltValueData) or an object under
// kVltValueRef; accessibility defaults to when-unlocked.
[[nodiscard]] VltStatus parseNewItem(PVDictionaryRef dictionary, Item &item,
                                     bool &returnPersistentReference);
// String attributes, accessibility and kVltValueData.
[[nodiscard]] VltStatus parseChanges(PVDictionaryRef dictionary, Changes &changes);

// What a lookup hands back, as the query asked:
//  - kVltReturnAttributes, or both data and persistent reference: a
//    dictionary of the item's class, attributes and accessibility (and its
//    object under kVltValueRef for a certificate or identity), with the
//    data and the persistent reference added when asked for;
//  - kVltReturnData alone: the secret (a certificate's or identity's DER
//    certificate);
//  - otherwise: the persistent reference.
// Ownership: create.
[[nodiscard]] PVTypeRef createResult(const Item &item, const Query &query);

}  // namespace vlt
