// Sets: named groups of services, each with its own selected VPN service.
#include <algorithm>

#include "platform/prefs/handles.hpp"

namespace {

using zn::fail;

ZNNetworkService *newServiceHandle(ZNPreferences &session, std::string_view id) {
  return new ZNNetworkService(session, session.service(id).id);
}

// The service of `set`'s own session; kZNStatusInvalidArgument for a
// service of another session.
ZNNetworkService &serviceOfSameSession(const ZNNetworkSet &set, ZNNetworkServiceRef service) {
  ZNNetworkService &handle = zn::expectService(service);
  if (handle.session.get() != set.session.get()) fail(kZNStatusInvalidArgument);
  handle.model();
  return handle;
}

}  // namespace

extern "C" {

PVArrayRef ZNNetworkSetCopyAll(ZNPreferencesRef prefs) noexcept {
  return zn::run(__func__, nullptr, [&] {
    ZNPreferences &session = zn::expectSession(prefs);
    return zn::createHandleArray(session.document.sets, [&](const zn::Set &set) {
      return new ZNNetworkSet(session, set.id);
    });
  });
}

ZNNetworkSetRef ZNNetworkSetCopyCurrent(ZNPreferencesRef prefs) noexcept {
  return zn::run(__func__, nullptr, [&] {
    ZNPreferences &session = zn::expectSession(prefs);
    return new ZNNetworkSet(session, session.set(session.document.currentSet).id);
  });
}

ZNNetworkSetRef ZNNetworkSetCreate(ZNPreferencesRef prefs) noexcept {
  return zn::run(__func__, nullptr, [&] {
    ZNPreferences &session = zn::expectSession(prefs);
    zn::Set set;
    set.id = zn::newIdentifier();
    auto handle = pv::Ref<ZNNetworkSetRef>::adopt(new ZNNetworkSet(session, set.id));
    session.document.sets.push_back(std::move(set));
    session.changed();
    return handle.release();
  });
}

Boolean ZNNetworkSetRemove(ZNNetworkSetRef set) noexcept {
  return zn::run(__func__, false, [&] {
    ZNNetworkSet &handle = zn::expectSet(set);
    handle.model();
    handle.prefs().document.removeSet(zn::text(handle.id.get()));
    handle.prefs().changed();
    return true;
  });
}

PVStringRef ZNNetworkSetGetSetID(ZNNetworkSetRef set) noexcept {
  return zn::run(__func__, nullptr, [&] {
    ZNNetworkSet &handle = zn::expectSet(set);
    handle.model();
    return handle.id.get();
  });
}

PVStringRef ZNNetworkSetGetName(ZNNetworkSetRef set) noexcept {
  return zn::run(__func__, nullptr, [&] { return zn::expectSet(set).model().name.get(); });
}

Boolean ZNNetworkSetSetName(ZNNetworkSetRef set, PVStringRef name) noexcept {
  return zn::run(__func__, false, [&] {
    ZNNetworkSet &handle = zn::expectSet(set);
    zn::StringRef copy = zn::copyString(zn::expectString(name));
    handle.model().name = std::move(copy);
    handle.prefs().changed();
    return true;
  });
}

Boolean ZNNetworkSetSetCurrent(ZNNetworkSetRef set) noexcept {
  return zn::run(__func__, false, [&] {
    ZNNetworkSet &handle = zn::expectSet(set);
    handle.model();
    handle.prefs().document.currentSet = zn::text(handle.id.get());
    handle.prefs().changed();
    return true;
  });
}

PVArrayRef ZNNetworkSetCopyServices(ZNNetworkSetRef set) noexcept {
  return zn::run(__func__, nullptr, [&] {
    ZNNetworkSet &handle = zn::expectSet(set);
    return zn::createHandleArray(handle.model().services, [&](const std::string &id) {
      return newServiceHandle(handle.prefs(), id);
    });
  });
}

Boolean ZNNetworkSetAddService(ZNNetworkSetRef set, ZNNetworkServiceRef service) noexcept {
  return zn::run(__func__, false, [&] {
    ZNNetworkSet &handle = zn::expectSet(set);
    std::string id(zn::text(serviceOfSameSession(handle, service).id.get()));
    std::vector<std::string> &members = handle.model().services;
    if (std::find(members.begin(), members.end(), id) != members.end()) {
      fail(kZNStatusInvalidArgument);  // a member already
    }
    members.push_back(std::move(id));
    handle.prefs().changed();
    return true;
  });
}

Boolean ZNNetworkSetRemoveService(ZNNetworkSetRef set, ZNNetworkServiceRef service) noexcept {
  return zn::run(__func__, false, [&] {
    ZNNetworkSet &handle = zn::expectSet(set);
    std::string_view id = zn::text(serviceOfSameSession(handle, service).id.get());
    std::vector<std::string> &members = handle.model().services;
    auto member = std::find(members.begin(), members.end(), id);
    if (member == members.end()) fail(kZNStatusNoSuchObject);
    members.erase(member);
    handle.prefs().changed();
    return true;
  });
}

ZNNetworkServiceRef ZNNetworkSetCopySelectedVPNService(ZNNetworkSetRef set) noexcept {
  return zn::run(__func__, nullptr, [&]() -> ZNNetworkService * {
    ZNNetworkSet &handle = zn::expectSet(set);
    const std::string &selected = handle.model().selected;
    return selected.empty() ? nullptr : newServiceHandle(handle.prefs(), selected);
  });
}

Boolean ZNNetworkSetSetSelectedVPNService(ZNNetworkSetRef set,
                                          ZNNetworkServiceRef service) noexcept {
  return zn::run(__func__, false, [&] {
    ZNNetworkSet &handle = zn::expectSet(set);
    std::string id = service ? std::string(zn::text(serviceOfSameSession(handle, service).id.get()))
                             : std::string();
    handle.model().selected = std::move(id);
    handle.prefs().changed();
    return true;
  });
}

}  // extern "C"
