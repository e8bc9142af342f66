// The Coffer's item operations: each checks its arguments and runs against
// the item store on the process's connection. Nothing here writes a secret
// anywhere but the database.
#include "platform/coffer/connection.hpp"
#include "platform/coffer/dictionary.hpp"
#include "platform/coffer/item_store.hpp"
#include "platform/testing/fault.hpp"

namespace {

// The operations must not let an exception out (allocation failures).
template <typename Body>
VltStatus guarded(Body body) noexcept {
  try {
    return body();
  } catch (...) {
    return kVltErrorStore;
  }
}

// An empty query would match every item: a write must name what it changes.
bool namesNothing(PVDictionaryRef query) { return PVDictionaryGetCount(query) == 0; }

}  // namespace

extern "C" {

VltStatus VltItemCopyMatching(PVDictionaryRef query, PVTypeRef *result) noexcept {
  if (pt::enter("VltItemCopyMatching", pt::Family::Coffer)) return kVltErrorInjected;
  return guarded([&]() -> VltStatus {
    vlt::Query parsed;
    vlt::Item item;
    VltStatus status = vlt::parseQuery(query, true, parsed);
    if (!status) {
      status =
          vlt::withDatabase([&](vlt::Database &db) { return vlt::findFirst(db, parsed, item); });
    }
    if (status || !result) return status;
    *result = vlt::createResult(item, parsed);
    return *result ? kVltSuccess : kVltErrorStore;
  });
}

VltStatus VltItemAdd(PVDictionaryRef attributes, PVTypeRef *result) noexcept {
  if (pt::enter("VltItemAdd", pt::Family::CofferWrite)) return kVltErrorInjected;
  return guarded([&]() -> VltStatus {
    vlt::Item item;
    bool returnPersistentReference = false;
    VltStatus status = vlt::parseNewItem(attributes, item, returnPersistentReference);
    if (!status) {
      status = vlt::withDatabase([&](vlt::Database &db) { return vlt::insert(db, item); });
    }
    if (status || !returnPersistentReference || !result) return status;
    const std::string &reference = item.persistentReference;
    *result = PVDataCreate(reinterpret_cast<const uint8_t *>(reference.data()),
                           static_cast<PVIndex>(reference.size()));
    return kVltSuccess;
  });
}

VltStatus VltItemUpdate(PVDictionaryRef query, PVDictionaryRef attributesToUpdate) noexcept {
  if (pt::enter("VltItemUpdate", pt::Family::CofferWrite)) return kVltErrorInjected;
  return guarded([&]() -> VltStatus {
    vlt::Query parsed;
    vlt::Changes changes;
    if (namesNothing(query)) return kVltErrorParam;
    VltStatus status = vlt::parseQuery(query, false, parsed);
    if (!status) status = vlt::parseChanges(attributesToUpdate, changes);
    if (status) return status;
    return vlt::withDatabase([&](vlt::Database &db) { return vlt::update(db, parsed, changes); });
  });
}

VltStatus VltItemDelete(PVDictionaryRef query) noexcept {
  if (pt::enter("VltItemDelete", pt::Family::CofferWrite)) return kVltErrorInjected;
  return guarded([&]() -> VltStatus {
    vlt::Query parsed;
    if (namesNothing(query)) return kVltErrorParam;
    if (VltStatus status = vlt::parseQuery(query, false, parsed)) return status;
    return vlt::withDatabase([&](vlt::Database &db) { return vlt::remove(db, parsed); });
  });
}

}  // extern "C"
