// The Coffer's item operations: each checks its arguments and runs against
// the item store on the process's connection. Nothing here writes a secret
// anywhere but the database.
#include "platform/coffer/connection.hpp"
#include "platform/coffer/dictionary.hpp"
#include "platform/coffer/item_store.hpp"
#include "platform/coffer/run.hpp"
#include "tarnwick/platform/ref.hpp"

namespace {

// An empty query would match every item: a write must name what it changes.
bool namesNothing(PVDictionaryRef query) { return PVDictionaryGetCount(query) == 0; }

}  // namespace

extern "C" {

VltStatus VltItemCopyMatching(PVDictionaryRef query, PVTypeRef *result) noexcept {
  return vlt::run("VltItemCopyMatching", pt::Family::Coffer, [&]() -> VltStatus {
    vlt::Query parsed;
    vlt::Item item;
    VltStatus status = vlt::parseQuery(query, true, parsed);
    if (!status) {
      status =
          vlt::withDatabase([&](sql::Database &db) { return vlt::findFirst(db, parsed, item); });
    }
    if (status || !result) return status;
    *result = vlt::createResult(item, parsed);
    return *result ? kVltSuccess : kVltErrorStore;
  });
}

VltStatus VltItemCopyAllMatching(PVDictionaryRef query, PVArrayRef *items) noexcept {
  return vlt::run("VltItemCopyAllMatching", pt::Family::Coffer, [&]() -> VltStatus {
    if (!items) return kVltErrorParam;
    *items = nullptr;
    vlt::Query parsed;
    std::vector<vlt::Item> found;
    VltStatus status = vlt::parseQuery(query, true, parsed);
    if (!status) {
      status = vlt::withDatabase([&](sql::Database &db) {
        found = vlt::findAll(db, parsed);
        return kVltSuccess;
      });
    }
    if (status) return status;
    parsed.returnAttributes = true;
    parsed.returnPersistentReference = true;
    auto array = pv::Ref<PVMutableArrayRef>::adopt(PVArrayCreateMutable());
    if (!array) return kVltErrorStore;
    for (const vlt::Item &item : found) {
      auto dictionary = pv::Ref<PVTypeRef>::adopt(vlt::createResult(item, parsed));
      if (!dictionary) return kVltErrorStore;
      PVArrayAppendValue(array.get(), dictionary.get());
    }
    *items = array.release();
    return kVltSuccess;
  });
}

VltStatus VltItemAdd(PVDictionaryRef attributes, PVTypeRef *result) noexcept {
  return vlt::run("VltItemAdd", pt::Family::CofferWrite, [&]() -> VltStatus {
    vlt::Item item;
    bool returnPersistentReference = false;
    VltStatus status = vlt::parseNewItem(attributes, item, returnPersistentReference);
    if (!status) {
      status = vlt::withDatabase([&](sql::Database &db) {
        vlt::insert(db, item);
        return kVltSuccess;
      });
    }
    if (status || !returnPersistentReference || !result) return status;
    const std::string &reference = item.persistentReference;
    *result = PVDataCreate(reinterpret_cast<const uint8_t *>(reference.data()),
                           static_cast<PVIndex>(reference.size()));
    return kVltSuccess;
  });
}

VltStatus VltItemUpdate(PVDictionaryRef query, PVDictionaryRef attributesToUpdate) noexcept {
  return vlt::run("VltItemUpdate", pt::Family::CofferWrite, [&]() -> VltStatus {
    vlt::Query parsed;
    vlt::Changes changes;
    if (namesNothing(query)) return kVltErrorParam;
    VltStatus status = vlt::parseQuery(query, false, parsed);
    if (!status) status = vlt::parseChanges(attributesToUpdate, changes);
    if (status) return status;
    return vlt::withDatabase([&](sql::Database &db) { return vlt::update(db, parsed, changes); });
  });
}

VltStatus VltItemDelete(PVDictionaryRef query) noexcept {
  return vlt::run("VltItemDelete", pt::Family::CofferWrite, [&]() -> VltStatus {
    vlt::Query parsed;
    if (namesNothing(query)) return kVltErrorParam;
    if (VltStatus status = vlt::parseQuery(query, false, parsed)) return status;
    return vlt::withDatabase([&](sql::Database &db) { return vlt::remove(db, parsed); });
  });
}

}  // extern "C"
