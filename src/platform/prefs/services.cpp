// Services: an interface chain, a name, an enabled flag and protocols.
#include "platform/prefs/handles.hpp"

namespace {

using zn::fail;

ZNNetworkService *newServiceHandle(ZNPreferences &session, zn::Service &service) {
  return new ZNNetworkService(session, service);
}

zn::DictionaryRef emptyDictionary() {
  auto empty = zn::DictionaryRef::adopt(PVDictionaryCreate(nullptr, nullptr, 0));
  if (!empty) throw std::bad_alloc();
  return empty;
}

// A copy of the chain from `outer` down, outermost first.
std::vector<zn::Layer> copyChain(const ZNNetworkInterface &outer) {
  std::vector<zn::Layer> chain;
  for (const ZNNetworkInterface *layer = &outer; layer; layer = layer->below()) {
    chain.push_back(layer->layer());
  }
  return chain;
}

}  // namespace

extern "C" {

ZNNetworkServiceRef ZNNetworkServiceCreate(ZNPreferencesRef prefs,
                                           ZNNetworkInterfaceRef interface) noexcept {
  return zn::run(__func__, nullptr, [&] {
    ZNPreferences &session = zn::expectSession(prefs);
    zn::ServiceBody body;
    body.chain = copyChain(zn::expectInterface(interface));
    zn::Service &service =
        session.document.addService(zn::Service(zn::newIdentifier(), std::move(body)));
    return newServiceHandle(session, service);
  });
}

PVArrayRef ZNNetworkServiceCopyAll(ZNPreferencesRef prefs) noexcept {
  return zn::run(__func__, nullptr, [&] {
    ZNPreferences &session = zn::expectSession(prefs);
    return zn::createHandleArray(session.document.services, [&](auto &entry) {
      return newServiceHandle(session, entry.second.value);
    });
  });
}

ZNNetworkServiceRef ZNNetworkServiceCopy(ZNPreferencesRef prefs, PVStringRef serviceID) noexcept {
  return zn::run(__func__, nullptr, [&] {
    ZNPreferences &session = zn::expectSession(prefs);
    return newServiceHandle(session, session.service(zn::text(zn::expectString(serviceID))));
  });
}

PVStringRef ZNNetworkServiceGetServiceID(ZNNetworkServiceRef service) noexcept {
  return zn::run(__func__, nullptr, [&] {
    // The handle's own string: it outlives the service's removal, which
    // callers rely on when they remove a service and then use its ID.
    ZNNetworkService &handle = zn::expectService(service);
    handle.model();
    return handle.id.get();
  });
}

PVStringRef ZNNetworkServiceGetName(ZNNetworkServiceRef service) noexcept {
  return zn::run(__func__, nullptr, [&] { return zn::expectService(service).model().name.get(); });
}

Boolean ZNNetworkServiceSetName(ZNNetworkServiceRef service, PVStringRef name) noexcept {
  return zn::run(__func__, false, [&] {
    ZNNetworkService &handle = zn::expectService(service);
    zn::StringRef copy = zn::copyString(zn::expectString(name));
    handle.model().name = std::move(copy);
    handle.changed();
    return true;
  });
}

Boolean ZNNetworkServiceGetEnabled(ZNNetworkServiceRef service) noexcept {
  return zn::run(__func__, false, [&] { return zn::expectService(service).model().enabled; });
}

Boolean ZNNetworkServiceSetEnabled(ZNNetworkServiceRef service, Boolean enabled) noexcept {
  return zn::run(__func__, false, [&] {
    ZNNetworkService &handle = zn::expectService(service);
    handle.model().enabled = enabled;
    handle.changed();
    return true;
  });
}

ZNNetworkInterfaceRef ZNNetworkServiceGetInterface(ZNNetworkServiceRef service) noexcept {
  return zn::run(__func__, nullptr, [&] {
    ZNNetworkService &handle = zn::expectService(service);
    zn::Service &model = handle.model();
    model.layerCount();  // a body that does not decode has no layers
    if (!model.outerLayer) model.outerLayer = handle.prefs().layerHandle(model, 0);
    return model.outerLayer;
  });
}

Boolean ZNNetworkServiceEstablishDefaultConfiguration(ZNNetworkServiceRef service) noexcept {
  return zn::run(__func__, false, [&] {
    ZNNetworkService &handle = zn::expectService(service);
    zn::ServiceBody &model = handle.model().body();
    for (zn::Layer &layer : model.chain) {
      if (!layer.configuration) layer.configuration = emptyDictionary();
    }
    for (PVStringRef type :
         {kZNNetworkProtocolTypeIPv4, kZNNetworkProtocolTypeDNS, kZNNetworkProtocolTypeProxies}) {
      zn::Protocol *protocol = model.findProtocol(zn::text(type));
      if (!protocol) {
        model.protocols.push_back({zn::copyString(type), emptyDictionary()});
      } else if (!protocol->configuration) {
        protocol->configuration = emptyDictionary();
      }
    }
    handle.changed();
    return true;
  });
}

Boolean ZNNetworkServiceAddProtocolType(ZNNetworkServiceRef service,
                                        PVStringRef protocolType) noexcept {
  return zn::run(__func__, false, [&] {
    ZNNetworkService &handle = zn::expectService(service);
    zn::StringRef type = zn::copyString(zn::expectString(protocolType));
    zn::ServiceBody &model = handle.model().body();
    if (model.findProtocol(zn::text(type.get()))) fail(kZNStatusInvalidArgument);  // has one
    model.protocols.push_back({std::move(type), {}});
    handle.changed();
    return true;
  });
}

ZNNetworkProtocolRef ZNNetworkServiceCopyProtocol(ZNNetworkServiceRef service,
                                                  PVStringRef protocolType) noexcept {
  return zn::run(__func__, nullptr, [&] {
    ZNNetworkService &handle = zn::expectService(service);
    zn::Service &model = handle.model();
    zn::Protocol *protocol = model.findProtocol(zn::text(zn::expectString(protocolType)));
    if (!protocol) fail(kZNStatusNoSuchObject);
    return new ZNNetworkProtocol(handle.prefs(), model, protocol->type);
  });
}

PVArrayRef ZNNetworkServiceCopyProtocols(ZNNetworkServiceRef service) noexcept {
  return zn::run(__func__, nullptr, [&] {
    ZNNetworkService &handle = zn::expectService(service);
    zn::Service &model = handle.model();
    return zn::createHandleArray(model.protocols(), [&](const zn::Protocol &protocol) {
      return new ZNNetworkProtocol(handle.prefs(), model, protocol.type);
    });
  });
}

Boolean ZNNetworkServiceRemove(ZNNetworkServiceRef service) noexcept {
  return zn::run(__func__, false, [&] {
    ZNNetworkService &handle = zn::expectService(service);
    handle.model();
    handle.prefs().document.removeService(zn::text(handle.id.get()));
    ++handle.prefs().epoch;
    return true;
  });
}

}  // extern "C"
