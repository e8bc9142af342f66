// Handles on the objects of a session (sets, services, protocols) and on
// interface layers, with the argument checks every operation starts with.
//
// A set, service or protocol handle names its object by identifier and
// retains its session, so it stays usable while the caller holds it: once
// the object has left the session, its getters give null and its setters
// fail with kZNStatusNoSuchObject.
#pragma once

#include <functional>
#include <new>
#include <vector>

#include "platform/prefs/error.hpp"
#include "platform/prefs/session.hpp"

namespace zn {

template <pv::Kind K>
struct SessionObject : pv::PVObject {
  SessionObject(ZNPreferences &session, StringRef id)
      : PVObject(K, false),
        session(pv::Ref<ZNPreferencesRef>::retain(&session)),
        id(std::move(id)) {}
  bool equals(const PVObject &other) const override {
    const auto &o = static_cast<const SessionObject &>(other);
    return session.get() == o.session.get() && text(id.get()) == text(o.id.get());
  }
  size_t hash() const override { return std::hash<std::string_view>{}(text(id.get())); }
  ZNPreferences &prefs() const { return *session.get(); }

  const pv::Ref<ZNPreferencesRef> session;
  const StringRef id;
};

}  // namespace zn

struct ZNNetworkSet : zn::SessionObject<pv::Kind::NetworkSet> {
  using SessionObject::SessionObject;
  zn::Set &model() const { return prefs().set(zn::text(id.get())); }
  void changed() const { prefs().setChanged(zn::text(id.get())); }
};

struct ZNNetworkService : zn::SessionObject<pv::Kind::NetworkService> {
  ZNNetworkService(ZNPreferences &session, zn::Service &service)
      : SessionObject(session, service.id), locator_(service, session.epoch) {}
  zn::Service &model() const { return locator_.locate(prefs(), id.get()); }
  void changed() const { prefs().serviceChanged(zn::text(id.get())); }

 private:
  zn::ServiceLocator locator_;
};

// Named by its service's identifier and its type.
struct ZNNetworkProtocol : zn::SessionObject<pv::Kind::NetworkProtocol> {
  ZNNetworkProtocol(ZNPreferences &session, zn::Service &service, zn::StringRef protocolType)
      : SessionObject(session, service.id),
        type(std::move(protocolType)),
        locator_(service, session.epoch) {}
  bool equals(const PVObject &other) const override {
    return SessionObject::equals(other) &&
           zn::text(type.get()) ==
               zn::text(static_cast<const ZNNetworkProtocol &>(other).type.get());
  }
  zn::Protocol &model() const;
  zn::Protocol &modelForChange() const;
  void changed() const { prefs().serviceChanged(zn::text(id.get())); }

  const zn::StringRef type;

 private:
  zn::ServiceLocator locator_;
};

// An interface layer: the platform's IPv4 interface, a free-standing layer
// made by ZNNetworkInterfaceCreateWithInterface, or a layer of a service in
// a session.
struct ZNNetworkInterface : pv::PVObject {
  constexpr explicit ZNNetworkInterface(bool immortal)
      : PVObject(pv::Kind::NetworkInterface, immortal) {}
  // The layer as it stands; throws kZNStatusNoSuchObject when it is gone.
  virtual const zn::Layer &layer() const = 0;
  // The layer for a change; throws when it cannot be changed.
  virtual zn::Layer &layerForChange() = 0;
  // The next layer down (borrowed), null at the bottom.
  virtual ZNNetworkInterfaceRef below() const = 0;
  // The layer's type (borrowed); throws as layer() does.
  virtual PVStringRef type() const { return layer().type.get(); }
};

namespace zn {

// The argument as the handle or value it must be; kZNStatusInvalidArgument
// for NULL or a value of another kind.
template <typename T>
T &expect(const void *ref, pv::Kind kind) {
  if (!ref || pv::object(ref)->kind != kind) fail(kZNStatusInvalidArgument);
  return *const_cast<T *>(static_cast<const T *>(ref));
}
inline ZNPreferences &expectSession(ZNPreferencesRef p) {
  return expect<ZNPreferences>(p, pv::Kind::Preferences);
}
inline ZNNetworkSet &expectSet(ZNNetworkSetRef s) {
  return expect<ZNNetworkSet>(s, pv::Kind::NetworkSet);
}
inline ZNNetworkService &expectService(ZNNetworkServiceRef s) {
  return expect<ZNNetworkService>(s, pv::Kind::NetworkService);
}
inline ZNNetworkProtocol &expectProtocol(ZNNetworkProtocolRef p) {
  return expect<ZNNetworkProtocol>(p, pv::Kind::NetworkProtocol);
}
inline ZNNetworkInterface &expectInterface(ZNNetworkInterfaceRef i) {
  return expect<ZNNetworkInterface>(i, pv::Kind::NetworkInterface);
}
inline PVStringRef expectString(PVStringRef s) {
  expect<PVString>(s, pv::Kind::String);
  return s;
}

// A configuration for the store: null stays null (no configuration); a
// dictionary is kept as an immutable copy, so later changes by its maker
// do not reach the session. kZNStatusInvalidArgument when it is no
// dictionary or holds a value the store cannot keep.
[[nodiscard]] DictionaryRef storableConfiguration(PVDictionaryRef configuration);

// A new array with one new handle per item, each made by `make`. Made in
// one allocation of the right size: growing it handle by handle would map
// and unmap a large store's array on every listing.
template <typename Items, typename Make>
[[nodiscard]] PVArrayRef createHandleArray(Items &items, Make make) {
  std::vector<PVTypeRef> handles;
  handles.reserve(items.size());
  struct ReleaseHandles {
    std::vector<PVTypeRef> &handles;
    ~ReleaseHandles() {
      for (PVTypeRef handle : handles) PVRelease(handle);
    }
  } release{handles};
  for (auto &item : items) handles.push_back(make(item));
  PVArrayRef array = PVArrayCreate(handles.data(), static_cast<PVIndex>(handles.size()));
  if (!array) throw std::bad_alloc();
  return array;
}

}  // namespace zn
