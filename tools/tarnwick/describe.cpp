#include "describe.hpp"

#include <algorithm>
#include <functional>
#include <unordered_set>

#include "credentials.hpp"

namespace tarnwick {
namespace {

constexpr const char *kHidden = "(secret, not shown)";

std::vector<Ref<ZNNetworkSetRef>> allSets(ZNPreferencesRef prefs) {
  auto sets = Ref<PVArrayRef>::adopt(ZNNetworkSetCopyAll(prefs));
  std::vector<Ref<ZNNetworkSetRef>> list;
  for (PVIndex i = 0; i < PVArrayGetCount(sets.get()); ++i) {
    list.push_back(Ref<ZNNetworkSetRef>::retain(elementAt<ZNNetworkSetRef>(sets.get(), i)));
  }
  return list;
}

std::string selectedID(ZNNetworkSetRef set) {
  auto selected = Ref<ZNNetworkServiceRef>::adopt(ZNNetworkSetCopySelectedVPNService(set));
  return selected ? serviceID(selected.get()) : "";
}

std::string currentSelectedID(ZNPreferencesRef prefs) {
  auto current = Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCopyCurrent(prefs));
  return current ? selectedID(current.get()) : "";
}

Json layersJson(ZNNetworkServiceRef service) {
  Json layers = Json::array();
  for (ZNNetworkInterfaceRef layer = ZNNetworkServiceGetInterface(service); layer;
       layer = ZNNetworkInterfaceGetInterface(layer)) {
    Json extended = Json::object();
    auto types = Ref<PVArrayRef>::adopt(ZNNetworkInterfaceCopyExtendedConfigurationTypes(layer));
    std::vector<std::string> names;
    for (PVIndex i = 0; i < PVArrayGetCount(types.get()); ++i) {
      names.push_back(textOf(PVArrayGetValueAtIndex(types.get(), i)));
    }
    std::sort(names.begin(), names.end());
    for (const std::string &name : names) {
      extended[name] = configurationJson(
          ZNNetworkInterfaceGetExtendedConfiguration(layer, makeString(name).get()));
    }
    layers.push_back(
        {{"type", textOf(ZNNetworkInterfaceGetInterfaceType(layer))},
         {"configuration", configurationJson(ZNNetworkInterfaceGetConfiguration(layer))},
         {"extended", extended}});
  }
  return layers;
}

Json protocolsJson(ZNNetworkServiceRef service) {
  auto protocols = Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyProtocols(service));
  std::vector<std::pair<std::string, Json>> entries;
  for (PVIndex i = 0; i < PVArrayGetCount(protocols.get()); ++i) {
    auto protocol = elementAt<ZNNetworkProtocolRef>(protocols.get(), i);
    entries.emplace_back(textOf(ZNNetworkProtocolGetProtocolType(protocol)),
                         configurationJson(ZNNetworkProtocolGetConfiguration(protocol)));
  }
  std::sort(entries.begin(), entries.end(),
            [](const auto &a, const auto &b) { return a.first < b.first; });
  Json json = Json::object();
  for (auto &[type, configuration] : entries) json[type] = std::move(configuration);
  return json;
}

const char *storedOrAbsent(bool stored) { return stored ? "stored" : "absent"; }

const char *storedOrAbsent(ZNNetworkServiceRef service, Secret which) {
  return storedOrAbsent(static_cast<bool>(copySecret(service, which)));
}

Json secretsJson(ZNNetworkServiceRef service) {
  auto certificates = localCertificates(service);
  bool certificateStored =
      !certificates.empty() && std::all_of(certificates.begin(), certificates.end(),
                                           [](const auto &ref) { return cofferHolds(ref.get()); });
  Json json = Json::object();
  for (Secret which : {Secret::accountPassword, Secret::sharedSecret, Secret::proxyPassword}) {
    json[secretField(which)] = storedOrAbsent(service, which);
  }
  json["certificate"] = storedOrAbsent(certificateStored);
  return json;
}

Json setJson(ZNNetworkSetRef set) {
  return {{"id", textOf(ZNNetworkSetGetSetID(set))}, {"name", textOf(ZNNetworkSetGetName(set))}};
}

}  // namespace

ServiceSummary summarize(ZNNetworkServiceRef service) {
  return {serviceID(service), serviceName(service), textOf(JXVPNServiceGetType(service)),
          vendorType(service)};
}

Json summaryJson(const ServiceSummary &service) {
  Json json = {{"id", service.id},
               {"name", service.name},
               {"type", service.type.empty() ? Json(nullptr) : Json(service.type)}};
  if (!service.vendorType.empty()) json["vendorType"] = service.vendorType;
  return json;
}

Json configurationJson(PVDictionaryRef configuration) {
  if (!configuration) return nullptr;
  Json json = jsonFromValue(configuration);
  // At any depth: a vendor's configuration nests as it likes.
  std::function<void(Json &)> hide = [&](Json &node) {
    if (node.is_array()) {
      for (auto &item : node) hide(item);
    }
    if (!node.is_object()) return;
    for (auto &[key, value] : node.items()) {
      if (isSecretKey(key)) {
        value = kHidden;
      } else {
        hide(value);
      }
    }
  };
  hide(json);
  return json;
}

Json listServices(ZNPreferencesRef prefs, const std::vector<Ref<ZNNetworkServiceRef>> &services) {
  std::string selected = currentSelectedID(prefs);
  auto onDemand = Ref<PVArrayRef>::adopt(JXVPNServiceCopyOnDemandSupported(prefs));
  std::unordered_set<std::string> onDemandIDs;  // a lookup each, not a pass over all
  for (PVIndex i = 0; i < PVArrayGetCount(onDemand.get()); ++i) {
    onDemandIDs.insert(serviceID(elementAt<ZNNetworkServiceRef>(onDemand.get(), i)));
  }
  Json list = Json::array();
  for (const auto &service : services) {
    std::string id = serviceID(service.get());
    Json json = summaryJson(summarize(service.get()));
    json["enabled"] = ZNNetworkServiceGetEnabled(service.get()) != 0;
    json["selected"] = id == selected;
    json["onDemand"] = onDemandIDs.contains(id);
    list.push_back(json);
  }
  return list;
}

Json describeService(ZNPreferencesRef prefs, ZNNetworkServiceRef service) {
  Json selectedIn = Json::array();
  for (auto &set : allSets(prefs)) {
    if (selectedID(set.get()) == serviceID(service)) selectedIn.push_back(setJson(set.get()));
  }
  Json json = listServices(prefs, {Ref<ZNNetworkServiceRef>::retain(service)})[0];
  json.update(Json{{"selectedIn", selectedIn},
                   {"layers", layersJson(service)},
                   {"protocols", protocolsJson(service)},
                   {"secrets", secretsJson(service)}});
  return json;
}

Json describeStore(ZNPreferencesRef prefs) {
  Json sets = Json::array();
  auto current = Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCopyCurrent(prefs));
  std::string currentID = current ? textOf(ZNNetworkSetGetSetID(current.get())) : "";
  for (auto &set : allSets(prefs)) {
    auto members = Ref<PVArrayRef>::adopt(ZNNetworkSetCopyServices(set.get()));
    std::vector<std::string> ids;
    for (PVIndex i = 0; i < PVArrayGetCount(members.get()); ++i) {
      ids.push_back(serviceID(elementAt<ZNNetworkServiceRef>(members.get(), i)));
    }
    std::sort(ids.begin(), ids.end());
    Json json = setJson(set.get());
    std::string selected = selectedID(set.get());
    json.update(Json{{"current", json["id"] == currentID},
                     {"services", ids},
                     {"selected", selected.empty() ? Json(nullptr) : Json(selected)}});
    sets.push_back(json);
  }
  std::sort(sets.begin(), sets.end(),
            [](const Json &a, const Json &b) { return a["id"] < b["id"]; });

  auto all = Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyAll(prefs));
  Json services = Json::array();
  for (PVIndex i = 0; i < PVArrayGetCount(all.get()); ++i) {
    auto service = elementAt<ZNNetworkServiceRef>(all.get(), i);
    Json json = summaryJson(summarize(service));
    json.update(Json{{"enabled", ZNNetworkServiceGetEnabled(service) != 0},
                     {"layers", layersJson(service)},
                     {"protocols", protocolsJson(service)}});
    services.push_back(json);
  }
  std::sort(services.begin(), services.end(),
            [](const Json &a, const Json &b) { return a["id"] < b["id"]; });
  return {{"appliedGeneration", ZNPreferencesGetAppliedGeneration(prefs)},
          {"sets", sets},
          {"services", services}};
}

}  // namespace tarnwick
