#include "describe.hpp"

#include <algorithm>
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

std::string setLabel(ZNNetworkSetRef set) {
  std::string name = textOf(ZNNetworkSetGetName(set));
  return name.empty() ? textOf(ZNNetworkSetGetSetID(set)) : name;
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
  return {{"accountPassword", storedOrAbsent(service, Secret::accountPassword)},
          {"sharedSecret", storedOrAbsent(service, Secret::sharedSecret)},
          {"proxyPassword", storedOrAbsent(service, Secret::proxyPassword)},
          {"certificate", storedOrAbsent(certificateStored)}};
}

}  // namespace

Json configurationJson(PVDictionaryRef configuration) {
  if (!configuration) return nullptr;
  Json json = jsonFromValue(configuration);
  for (auto &[key, value] : json.items()) {
    if (isSecretKey(key)) value = kHidden;
  }
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
    list.push_back({{"id", id},
                    {"name", serviceName(service.get())},
                    {"type", textOf(JXVPNServiceGetType(service.get()))},
                    {"selected", id == selected},
                    {"onDemand", onDemandIDs.contains(id)}});
  }
  return list;
}

Json describeService(ZNPreferencesRef prefs, ZNNetworkServiceRef service) {
  Json selectedIn = Json::array();
  for (auto &set : allSets(prefs)) {
    if (selectedID(set.get()) == serviceID(service)) selectedIn.push_back(setLabel(set.get()));
  }
  Json json = {{"name", serviceName(service)},
               {"id", serviceID(service)},
               {"type", textOf(JXVPNServiceGetType(service))}};
  if (!vendorType(service).empty()) json["vendorType"] = vendorType(service);
  json.update(Json{{"enabled", ZNNetworkServiceGetEnabled(service) != 0},
                   {"selectedIn", selectedIn},
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
    std::string id = textOf(ZNNetworkSetGetSetID(set.get()));
    std::string selected = selectedID(set.get());
    sets.push_back({{"id", id},
                    {"name", textOf(ZNNetworkSetGetName(set.get()))},
                    {"current", id == currentID},
                    {"services", ids},
                    {"selected", selected.empty() ? Json(nullptr) : Json(selected)}});
  }
  std::sort(sets.begin(), sets.end(),
            [](const Json &a, const Json &b) { return a["id"] < b["id"]; });

  auto all = Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyAll(prefs));
  Json services = Json::array();
  for (PVIndex i = 0; i < PVArrayGetCount(all.get()); ++i) {
    auto service = elementAt<ZNNetworkServiceRef>(all.get(), i);
    services.push_back({{"id", serviceID(service)},
                        {"name", serviceName(service)},
                        {"enabled", ZNNetworkServiceGetEnabled(service) != 0},
                        {"chain", layersJson(service)},
                        {"protocols", protocolsJson(service)}});
  }
  std::sort(services.begin(), services.end(),
            [](const Json &a, const Json &b) { return a["id"] < b["id"]; });
  return {{"appliedGeneration", ZNPreferencesGetAppliedGeneration(prefs)},
          {"sets", sets},
          {"services", services}};
}

}  // namespace tarnwick
