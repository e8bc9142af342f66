// The session object: its copy of the store and the lookups into it.
#include "platform/prefs/session.hpp"

#include <cassert>

#include "platform/prefs/handles.hpp"
#include "platform/values/json.hpp"

ZNPreferences::ZNPreferences(std::string dir, zn::LockFile lockFile, zn::Database database,
                             zn::Document copy)
    : PVObject(pv::Kind::Preferences, false),
      directory(std::move(dir)),
      lock(std::move(lockFile)),
      db(std::move(database)),
      document(std::move(copy)) {}

ZNPreferences::~ZNPreferences() { releaseLayerHandles(); }

zn::Service &ZNPreferences::service(std::string_view id) {
  zn::Service *found = document.services.find(id);
  if (!found) zn::fail(kZNStatusNoSuchObject);
  return *found;
}

zn::Set &ZNPreferences::set(std::string_view id) {
  zn::Set *found = document.sets.find(id);
  if (!found) zn::fail(kZNStatusNoSuchObject);
  return *found;
}

// The debug checks look at the one object changed, never the whole copy, so
// that building a large store stays linear in debug builds too.
void ZNPreferences::serviceChanged(std::string_view id) {
  [[maybe_unused]] const zn::ServiceBody *body = service(id).decodedBody();
  assert(!body || body->isWhole());
  document.services.touch(id);
}

void ZNPreferences::setChanged(std::string_view id) {
  [[maybe_unused]] const zn::Set &changed = set(id);
  assert(changed.selected.empty() || document.services.find(changed.selected));
  document.sets.touch(id);
}

zn::Protocol &ZNNetworkProtocol::model() const {
  zn::Protocol *found = locator_.locate(prefs(), id.get()).findProtocol(zn::text(type.get()));
  if (!found) zn::fail(kZNStatusNoSuchObject);
  return *found;
}

zn::Protocol &ZNNetworkProtocol::modelForChange() const {
  locator_.locate(prefs(), id.get()).body();  // a change is written with the whole body
  return model();
}

namespace zn {

DictionaryRef storableConfiguration(PVDictionaryRef configuration) {
  if (!configuration) return {};
  if (PVGetTypeID(configuration) != PVDictionaryGetTypeID()) fail(kZNStatusInvalidArgument);
  nlohmann::json ignored;
  std::string reason;
  if (!pv::json::toJson(configuration, ignored, reason)) fail(kZNStatusInvalidArgument);
  auto copy = DictionaryRef::adopt(PVDictionaryCreateCopy(configuration));
  if (!copy) throw std::bad_alloc();
  return copy;
}

}  // namespace zn
