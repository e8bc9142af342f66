// Sets: named groups of services, each with its own selected VPN service.
#include "platform/prefs/handles.hpp"

namespace {

using zn::fail;

ZNNetworkService *newServiceHandle(ZNPreferences &session, std::string_view id) {
  return new ZNNetworkService(session, session.service(id));
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
    return zn::createHandleArray(session.document.sets, [&](const auto &entry) {
      return new ZNNetworkSet(session, entry.second.value.id);
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
    zn::StringRef id = zn::newIdentifier();
    auto handle = pv::Ref<ZNNetworkSetRef>::adopt(new ZNNetworkSet(session, id));
    session.document.addSet(std::move(id));
    return handle.release();
  });
}

Boolean ZNNetworkSetRemove(ZNNetworkSetRef set) noexcept {
  return zn::run(__func__, false, [&] {
    ZNNetworkSet &handle = zn::expectSet(set);
    handle.model();
    handle.prefs().document.removeSet(zn::text(handle.id.get()));
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
    handle.changed();
    return true;
  });
}

Boolean ZNNetworkSetSetCurrent(ZNNetworkSetRef set) noexcept {
  return zn::run(__func__, false, [&] {
    ZNNetworkSet &handle = zn::expectSet(set);
    handle.model();
    zn::Document &document = handle.prefs().document;
    document.currentSet = zn::text(handle.id.get());
    document.currentSetChanged = true;
    return true;
  });
}

PVArrayRef ZNNetworkSetCopyServices(ZNNetworkSetRef set) noexcept {
  return zn::run(__func__, nullptr, [&] {
    ZNNetworkSet &handle = zn::expectSet(set);
    return zn::createHandleArray(handle.model().members, [&](const auto &member) {
      return new ZNNetworkService(handle.prefs(), *member.second.value.service);
    });
  });
}

Boolean ZNNetworkSetAddService(ZNNetworkSetRef set, ZNNetworkServiceRef service) noexcept {
  return zn::run(__func__, false, [&] {
    ZNNetworkSet &handle = zn::expectSet(set);
    zn::Service &member = serviceOfSameSession(handle, service).model();
    zn::Set &model = handle.model();
    // A member already.
    if (model.members.find(zn::text(member.id.get()))) fail(kZNStatusInvalidArgument);
    handle.prefs().document.addMember(model, member);
    return true;
  });
}

Boolean ZNNetworkSetRemoveService(ZNNetworkSetRef set, ZNNetworkServiceRef service) noexcept {
  return zn::run(__func__, false, [&] {
    ZNNetworkSet &handle = zn::expectSet(set);
    std::string_view id = zn::text(serviceOfSameSession(handle, service).id.get());
    if (!handle.model().members.remove(id)) fail(kZNStatusNoSuchObject);
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
    handle.changed();
    return true;
  });
}

}  // extern "C"
