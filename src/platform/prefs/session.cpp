// The session object: its copy of the store and the lookups into it.
#include "platform/prefs/session.hpp"

#include <cassert>

#include "platform/prefs/handles.hpp"
#include "platform/values/json.hpp"

ZNPreferences::ZNPreferences(std::string dir, zn::LockFile lockFile, zn::Document copy)
    : PVObject(pv::Kind::Preferences, false),
      directory(std::move(dir)),
      lock(std::move(lockFile)),
      document(std::move(copy)) {}

ZNPreferences::~ZNPreferences() { releaseLayerHandles(); }

zn::Service &ZNPreferences::service(std::string_view id) {
  zn::Service *found = document.findService(id);
  if (!found) zn::fail(kZNStatusNoSuchObject);
  return *found;
}

zn::Set &ZNPreferences::set(std::string_view id) {
  zn::Set *found = document.findSet(id);
  if (!found) zn::fail(kZNStatusNoSuchObject);
  return *found;
}

void ZNPreferences::changed() {
  assert(document.isWhole());
  modified = true;
}

zn::Protocol &ZNNetworkProtocol::model() const {
  zn::Protocol *found = prefs().service(zn::text(id.get())).findProtocol(zn::text(type.get()));
  if (!found) zn::fail(kZNStatusNoSuchObject);
  return *found;
}

namespace zn {

std::string storePath(const std::string &directory, const char *name) {
  return directory + "/" + name;
}

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
