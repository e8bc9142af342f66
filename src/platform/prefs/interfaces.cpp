// Interface layers. Three kinds share one handle type:
//  - the platform's IPv4 interface, immortal and not configurable;
//  - free-standing layers made by ZNNetworkInterfaceCreateWithInterface,
//    which own their data and retain the layer below;
//  - layers of a service in a session, named by service and depth, owned
//    by the session and detached from it when it goes away.
#include "platform/prefs/handles.hpp"

namespace {

using zn::fail;

struct BaseIPv4Interface final : ZNNetworkInterface {
  constexpr BaseIPv4Interface() : ZNNetworkInterface(true) {}
  const zn::Layer &layer() const override {
    static const zn::Layer base{zn::StringRef::retain(kZNNetworkInterfaceTypeIPv4), {}, {}};
    return base;
  }
  zn::Layer &layerForChange() override { fail(kZNStatusInvalidArgument); }
  ZNNetworkInterfaceRef below() const override { return nullptr; }
};

constinit BaseIPv4Interface baseIPv4;

struct FreeLayer final : ZNNetworkInterface {
  FreeLayer(ZNNetworkInterfaceRef underlying, zn::StringRef type)
      : ZNNetworkInterface(false), below_(pv::Ref<ZNNetworkInterfaceRef>::retain(underlying)) {
    data_.type = std::move(type);
  }
  const zn::Layer &layer() const override { return data_; }
  zn::Layer &layerForChange() override { return data_; }
  ZNNetworkInterfaceRef below() const override { return below_.get(); }

 private:
  zn::Layer data_;
  const pv::Ref<ZNNetworkInterfaceRef> below_;
};

struct SessionLayer final : ZNNetworkInterface {
  SessionLayer(ZNPreferences &session, zn::Service &service, size_t depth)
      : ZNNetworkInterface(false),
        session_(&session),
        serviceId_(service.id),
        depth_(depth),
        locator_(service, session.epoch) {}
  const zn::Layer &layer() const override { return find(); }
  zn::Layer &layerForChange() override {
    zn::Layer &found = find();
    session_->serviceChanged(zn::text(serviceId_.get()));
    return found;
  }
  // Types and depth come from the service's outline: telling a chain's
  // types reads no layer.
  PVStringRef type() const override {
    zn::Service &found = service();
    if (depth_ >= found.layerCount()) fail(kZNStatusNoSuchObject);
    return found.layerType(depth_);
  }
  ZNNetworkInterfaceRef below() const override {
    if (depth_ + 1 >= service().layerCount()) return nullptr;
    // Both belong to the session, which keeps them as long as it lives.
    if (!below_) below_ = session_->layerHandle(service(), depth_ + 1);
    return below_;
  }
  void detach() { session_ = nullptr; }

 private:
  zn::Service &service() const {
    if (!session_) fail(kZNStatusNoSuchObject);
    return locator_.locate(*session_, serviceId_.get());
  }
  std::vector<zn::Layer> &chain() const { return service().body().chain; }
  zn::Layer &find() const {
    std::vector<zn::Layer> &layers = chain();
    if (depth_ >= layers.size()) fail(kZNStatusNoSuchObject);
    return layers[depth_];
  }

  ZNPreferences *session_;  // not retained: the session owns this handle
  const zn::StringRef serviceId_;
  const size_t depth_;
  zn::ServiceLocator locator_;
  mutable ZNNetworkInterfaceRef below_ = nullptr;
};

}  // namespace

ZNNetworkInterfaceRef ZNPreferences::layerHandle(zn::Service &service, size_t depth) {
  if (layers_.size() == layers_.capacity()) {
    layers_.reserve(std::max<size_t>(16, layers_.size() * 2));
  }
  ZNNetworkInterfaceRef handle = new SessionLayer(*this, service, depth);
  layers_.push_back(handle);  // the session's reference; there is room
  return handle;
}

void ZNPreferences::carryLayersTo(zn::Document &fresh) noexcept {
  for (auto &[position, row] : document.services) {
    if (!row.value.outerLayer) continue;
    if (zn::Service *same = fresh.services.find(row.id)) same->outerLayer = row.value.outerLayer;
  }
}

void ZNPreferences::releaseLayerHandles() noexcept {
  for (ZNNetworkInterfaceRef handle : layers_) {
    // A caller may still hold a reference; the handle then reports its
    // layer as gone rather than reach a session that no longer exists.
    static_cast<SessionLayer *>(handle)->detach();
    PVRelease(handle);
  }
  layers_.clear();
}

extern "C" {

const ZNNetworkInterfaceRef kZNNetworkInterfaceIPv4 = &baseIPv4;

ZNNetworkInterfaceRef ZNNetworkInterfaceCreateWithInterface(ZNNetworkInterfaceRef interface,
                                                            PVStringRef interfaceType) noexcept {
  return zn::run(__func__, nullptr, [&] {
    if (interface) zn::expectInterface(interface);
    return new FreeLayer(interface, zn::copyString(zn::expectString(interfaceType)));
  });
}

PVStringRef ZNNetworkInterfaceGetInterfaceType(ZNNetworkInterfaceRef interface) noexcept {
  return zn::run(__func__, nullptr, [&] { return zn::expectInterface(interface).type(); });
}

ZNNetworkInterfaceRef ZNNetworkInterfaceGetInterface(ZNNetworkInterfaceRef interface) noexcept {
  return zn::run(__func__, nullptr, [&] { return zn::expectInterface(interface).below(); });
}

PVDictionaryRef ZNNetworkInterfaceGetConfiguration(ZNNetworkInterfaceRef interface) noexcept {
  return zn::run(__func__, nullptr,
                 [&] { return zn::expectInterface(interface).layer().configuration.get(); });
}

Boolean ZNNetworkInterfaceSetConfiguration(ZNNetworkInterfaceRef interface,
                                           PVDictionaryRef configuration) noexcept {
  return zn::run(__func__, false, [&] {
    ZNNetworkInterface &layer = zn::expectInterface(interface);
    zn::DictionaryRef copy = zn::storableConfiguration(configuration);
    layer.layerForChange().configuration = std::move(copy);
    return true;
  });
}

PVDictionaryRef ZNNetworkInterfaceGetExtendedConfiguration(ZNNetworkInterfaceRef interface,
                                                           PVStringRef entityType) noexcept {
  return zn::run(__func__, nullptr, [&]() -> PVDictionaryRef {
    const zn::Layer &layer = zn::expectInterface(interface).layer();
    auto found = layer.extended.find(std::string(zn::text(zn::expectString(entityType))));
    return found == layer.extended.end() ? nullptr : found->second.get();
  });
}

PVArrayRef ZNNetworkInterfaceCopyExtendedConfigurationTypes(
    ZNNetworkInterfaceRef interface) noexcept {
  return zn::run(__func__, nullptr, [&] {
    const zn::Layer &layer = zn::expectInterface(interface).layer();
    auto types = pv::Ref<PVMutableArrayRef>::adopt(PVArrayCreateMutable());
    if (!types) throw std::bad_alloc();
    for (const auto &[entity, configuration] : layer.extended) {
      PVArrayAppendValue(types.get(), zn::makeString(entity).get());
    }
    return static_cast<PVArrayRef>(types.release());
  });
}

Boolean ZNNetworkInterfaceSetExtendedConfiguration(ZNNetworkInterfaceRef interface,
                                                   PVStringRef entityType,
                                                   PVDictionaryRef configuration) noexcept {
  return zn::run(__func__, false, [&] {
    ZNNetworkInterface &layer = zn::expectInterface(interface);
    std::string entity(zn::text(zn::expectString(entityType)));
    zn::DictionaryRef copy = zn::storableConfiguration(configuration);
    auto &extended = layer.layerForChange().extended;
    if (copy) {
      extended.insert_or_assign(std::move(entity), std::move(copy));
    } else {
      extended.erase(entity);
    }
    return true;
  });
}

}  // extern "C"
